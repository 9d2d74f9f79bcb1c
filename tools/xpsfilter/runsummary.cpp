// runsummary.cpp: the JSON summary of a successful `xpsfilter run`.
#include "runsummary.h"

#include <cstdio>

#include "commandline.h"
#include "ticketcontents.h"

namespace xpsfilter {

namespace {

std::string Number(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.3f", value);
    return text;
}

}  // namespace

std::string RunSummaryJson(const std::string& input, const std::string& output,
                           const pipelinehost::JobResult& result) {
    const double rate = result.seconds > 0 ? static_cast<double>(result.pages) / result.seconds : 0;
    std::string json = "{\n  \"input\": " + JsonString(input) +
                       ",\n  \"output\": " + JsonString(output) +
                       ",\n  \"pages\": " + std::to_string(result.pages) +
                       ",\n  \"seconds\": " + Number(result.seconds) +
                       ",\n  \"pagesPerSecond\": " + Number(rate) + ",\n  \"filters\": [";
    for (std::size_t i = 0; i < result.filters.size(); ++i) {
        const pipelinehost::FilterReport& filter = result.filters[i];
        json += std::string(i > 0 ? "," : "") + "\n    {\"name\": " + JsonString(filter.name) +
                ", \"initializeResult\": " + JsonString(Hex(filter.initializeResult)) +
                ", \"startResult\": " + JsonString(Hex(filter.startResult)) +
                ", \"filterFinishedCalls\": " + std::to_string(filter.filterFinishedCalls) +
                ", \"shutdownOperationCalls\": " + std::to_string(filter.shutdownOperationCalls) +
                "}";
    }
    json += std::string(result.filters.empty() ? "]" : "\n  ]") + ",\n  \"queueHighWater\": [";
    for (std::size_t i = 0; i < result.queueHighWater.size(); ++i) {
        json += (i > 0 ? ", " : "") + std::to_string(result.queueHighWater[i]);
    }
    return json + "]\n}\n";
}

}  // namespace xpsfilter
