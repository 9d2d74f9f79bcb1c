// allocatortuning.cpp: glibc allocator thresholds for running jobs.
#include "pipelinehost/allocatortuning.h"

#include <malloc.h>

namespace pipelinehost {

void TuneAllocatorForJobs() {
    mallopt(M_MMAP_THRESHOLD, 32 << 20);
    mallopt(M_TRIM_THRESHOLD, 64 << 20);
}

}  // namespace pipelinehost
