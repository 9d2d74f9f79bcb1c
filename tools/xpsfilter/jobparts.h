// jobparts.h: JobParts hands out the parts of an XPS job exactly as the first filter of a
// pipeline receives them (the host's JobReader): the XPS document, the fixed document sequence,
// then each fixed document followed by its pages. `inspect` and `ticket effective` walk a job
// with it, so that they show what a filter sees.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "pipelinehost/jobreader.h"
#include "pipelinehost/sourcepackage.h"

namespace xpsfilter {

class JobParts {
public:
    // Opens the job; throws pipelinehost::JobError (input missing, not a ZIP, bad package).
    explicit JobParts(const std::string& path);

    // The next part, or null after the last one. Throws JobError for a damaged part.
    CComPtr<IUnknown> Next();

    const pipelinehost::SourcePackage& Package() const { return *m_package; }
    // What the reader noticed and went on with (a second PrintTicket on a part, a document
    // without pages), as `run` prints it.
    std::vector<std::string> Warnings() const { return m_status->Warnings(); }

private:
    std::shared_ptr<pipelinehost::SourcePackage> m_package;
    std::shared_ptr<pipelinehost::JobStatus> m_status;
    CComPtr<pipelinehost::JobReader> m_reader;
};

// The URI of a part (GetUri of the sequence, a document, a page or a resource), "" when it has
// none.
template <class Part>
std::string PartUri(Part* part);

// The part's PrintTicket, or null when it has none.
template <class Part>
CComPtr<IPartPrintTicket> PartTicket(Part* part);

}  // namespace xpsfilter
