// allocatortuning.h: the C library allocator settings a program running jobs should use.
#pragma once

namespace pipelinehost {

// Keeps blocks of up to 32 MiB on the heap instead of mapping and unmapping each one, and up to
// 64 MiB of freed memory for reuse instead of returning it to the system at once. A job whose
// filter rewrites every page allocates and frees megabytes per page (the new markup, the
// compression chunks); with the C library's defaults each of those blocks is mapped afresh and
// every page of it faulted in again, about a tenth of such a job's CPU time. The setting is
// process-wide, so the host never makes it itself: a program calls this once at start
// (xpsfilter and the CUPS filter do). Peak memory stays bounded; what was freed is reused.
void TuneAllocatorForJobs();

}  // namespace pipelinehost
