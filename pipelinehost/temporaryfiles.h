// temporaryfiles.h: the temporary files and folders the process holds right now. Whoever makes a
// temporary file or folder records it here and forgets it once it is renamed into place or
// removed, so that a program ending on a signal (the xpsfilter command) can remove every one of
// them first. Creating, renaming and removing are serialised with RemoveAll: a file is either
// recorded or not yet created, and after RemoveAll nothing new is created.
#pragma once

#include <string>

namespace pipelinehost {

class TemporaryFiles {
public:
    // mkstemp on the pattern (its last six characters "XXXXXX"), recording the file. Returns the
    // descriptor, or -1 with errno set (EINTR once RemoveAll ran).
    static int CreateFile(std::string& pattern);
    // mkdtemp on the pattern, recording the folder (removed with its contents). Returns false
    // with errno set.
    static bool CreateFolder(std::string& pattern);
    // Renames a recorded file over the target and forgets it. Returns false with errno set.
    static bool RenameOver(const std::string& path, const std::string& target);
    // Removes a recorded file or folder (a folder with its contents) and forgets it.
    static void Remove(const std::string& path);
    // Removes everything recorded; later CreateFile/CreateFolder calls fail. For the last moments
    // of a process that a signal ends.
    static void RemoveAll();
};

}  // namespace pipelinehost
