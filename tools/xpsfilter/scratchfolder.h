// scratchfolder.h: the command's private temporary folder, made on first use in $TMPDIR (or
// /tmp) and recorded in pipelinehost::TemporaryFiles, so that it goes away at exit and on
// SIGINT, SIGTERM and SIGHUP. Standard input is spooled there, and a job whose output is a
// stream is assembled there.
#pragma once

#include <string>

namespace xpsfilter {

// The folder's path; throws ToolError(kExitInternal) when it cannot be made.
std::string ScratchFolder();

}  // namespace xpsfilter
