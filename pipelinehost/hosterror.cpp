// hosterror.cpp: error kinds, their HRESULTs and the per-job first-error record.
#include "pipelinehost/hosterror.h"

namespace pipelinehost {

HRESULT HResultFor(ErrorKind kind) {
    switch (kind) {
        case ErrorKind::InputMissing:
            return HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
        case ErrorKind::NotZip:
            return HRESULT_FROM_WIN32(ERROR_BAD_FORMAT);
        case ErrorKind::BadPackage:
            return HRESULT_FROM_WIN32(ERROR_INVALID_DATA);
        case ErrorKind::LimitExceeded:
            return STG_E_INSUFFICIENTMEMORY;
        case ErrorKind::BadTicket:
            return HRESULT_FROM_WIN32(ERROR_INVALID_DATA);
        case ErrorKind::Config:
            return E_INVALIDARG;
        case ErrorKind::Filter:
            return E_ABORT;
        case ErrorKind::Output:
            return STG_E_WRITEFAULT;
        case ErrorKind::Internal:
            return E_UNEXPECTED;
    }
    return E_FAIL;
}

const char* KindLabel(ErrorKind kind) {
    switch (kind) {
        case ErrorKind::InputMissing:
            return "input";
        case ErrorKind::NotZip:
            return "input";
        case ErrorKind::BadPackage:
            return "package";
        case ErrorKind::LimitExceeded:
            return "limit";
        case ErrorKind::BadTicket:
            return "ticket";
        case ErrorKind::Config:
            return "pipeline";
        case ErrorKind::Filter:
            return "filter";
        case ErrorKind::Output:
            return "output";
        case ErrorKind::Internal:
            return "internal";
    }
    return "error";
}

void JobStatus::Fail(const JobError& error) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_error) m_error = error;
}

bool JobStatus::Failed() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_error.has_value();
}

std::optional<JobError> JobStatus::Error() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_error;
}

void JobStatus::Warn(const std::string& message) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_warnings.push_back(message);
}

std::vector<std::string> JobStatus::Warnings() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_warnings;
}

}  // namespace pipelinehost
