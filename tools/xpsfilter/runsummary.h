// runsummary.h: the summary of `xpsfilter run --json`: the job's files, pages, time and rate,
// and per filter what the host recorded (its results, FilterFinished and shutdown counts), and
// how full each queue between two filters became.
#pragma once

#include <string>

#include "pipelinehost/jobrunner.h"

namespace xpsfilter {

std::string RunSummaryJson(const std::string& input, const std::string& output,
                           const pipelinehost::JobResult& result);

}  // namespace xpsfilter
