// outputtarget.h: where a subcommand's OUT argument writes, decided before any input is read.
//   - absent, or a regular file: a temporary file in its folder, renamed into place when
//     complete; an existing file keeps its mode, a new one gets 0666 less the umask;
//   - a symbolic link: the same, for the file the link (chain) ends at; the link stays;
//   - a character device, a FIFO, or "-" (standard output; also an empty argument): a stream,
//     written directly and never replaced;
//   - a folder, a path in a folder that does not exist, a socket or a link loop: refused with
//     ToolError(kExitOutput) naming OUT.
#pragma once

#include <string>
#include <string_view>

namespace xpsfilter {

class OutputTarget {
public:
    static OutputTarget Resolve(const std::string& argument);

    bool IsStream() const { return m_stream; }
    bool IsStandardOutput() const { return m_stream && m_path.empty(); }
    // OUT as given ("-" for standard output), for messages.
    const std::string& Name() const { return m_name; }
    // The file to put in place (links followed); empty for standard output.
    const std::string& Path() const { return m_path; }

    // Writes the whole text (ToolError(kExitOutput) on failure; a file target is then left as
    // it was). A stream gets a final newline if the text lacks one.
    void WriteText(std::string_view text) const;
    // Copies a finished file to a stream target.
    void CopyToStream(const std::string& file) const;
    // Opens a stream target for writing (standard output is not opened again); the caller closes
    // what it gets unless it is STDOUT_FILENO. ToolError(kExitOutput) on failure.
    int OpenStream() const;

private:
    OutputTarget(std::string name, std::string path, bool stream)
        : m_name(std::move(name)), m_path(std::move(path)), m_stream(stream) {}
    void WriteAll(int fd, const char* data, std::size_t size) const;
    [[noreturn]] void Fail(const std::string& what) const;

    std::string m_name;
    std::string m_path;
    bool m_stream = false;
};

}  // namespace xpsfilter
