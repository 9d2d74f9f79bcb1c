// inputsource.h: an input file argument, where "-" means standard input. Readers of ZIP
// packages and of tickets need a file they can seek in, so standard input is copied (spooled)
// into the scratch folder first; the copy goes away with the folder.
#pragma once

#include <string>

namespace xpsfilter {

class InputSource {
public:
    // The file to read for the argument: the argument itself, or for "-" the spooled copy of
    // standard input. Standard input can be read only once per command (ToolError, exit 2).
    static std::string Path(const std::string& argument);
    // The message with the spooled copy's path, if any, replaced by "standard input".
    static std::string Readable(std::string message);
};

}  // namespace xpsfilter
