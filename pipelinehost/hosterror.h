// hosterror.h: how the pipeline host reports what went wrong with a job. Inside the host a
// failure is a JobError (a kind plus a message naming the cause); at COM boundaries it becomes an
// HRESULT, and the first error of a job is kept in its JobStatus so that the tool can print the
// real cause and pick the exit code, whichever thread met it.
#pragma once

#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/com/wintypes.h"

namespace pipelinehost {

enum class ErrorKind {
    InputMissing,   // the job file does not exist or cannot be read
    NotZip,         // not a ZIP archive, truncated or damaged
    BadPackage,     // a ZIP, but not a valid XPS package (start part, names, pieces, cycles...)
    LimitExceeded,  // a part inflates beyond the configured bound (zip bomb)
    BadTicket,      // the ticket file given for the job is missing or not well-formed XML
    Config,         // bad pipeline configuration or a filter that cannot be created
    Filter,         // a filter failed, threw, stopped the job or did not finish
    Output,         // the output file cannot be written
    Internal,       // anything else
};

class JobError : public std::runtime_error {
public:
    JobError(ErrorKind kind, const std::string& message)
        : std::runtime_error(message), m_kind(kind) {}
    ErrorKind Kind() const { return m_kind; }

private:
    ErrorKind m_kind;
};

// The HRESULT a COM method returns for an error of this kind.
HRESULT HResultFor(ErrorKind kind);
// "input", "package", ...: a short label for messages.
const char* KindLabel(ErrorKind kind);

// The first error of a job, and the warnings about input the job goes on with (a second
// PrintTicket on a part, a document without pages); thread-safe, first error wins.
class JobStatus {
public:
    void Fail(const JobError& error);
    void Fail(ErrorKind kind, const std::string& message) { Fail(JobError(kind, message)); }
    bool Failed() const;
    std::optional<JobError> Error() const;
    void Warn(const std::string& message);
    std::vector<std::string> Warnings() const;

private:
    mutable std::mutex m_mutex;
    std::optional<JobError> m_error;
    std::vector<std::string> m_warnings;
};

}  // namespace pipelinehost
