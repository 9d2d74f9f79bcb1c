// jobticketfilter.h: the first filter of every chain the CUPS filter runs. It merges the user's
// print options (a delta PrintTicket) into the job ticket of the fixed document sequence with the
// PrintTicket provider's merge at job scope, so that the printer's own filters and the printer see
// them as the job's settings; a job without a job ticket gets one holding the options alone.
// Every part is forwarded as it came. It is also how the runner stops a job on SIGTERM: Stop()
// asks the pipeline to shut down, as a filter would.
#pragma once

#include <atomic>
#include <mutex>
#include <string>

#include "platform/com/atl.h"
#include "platform/com/comobject.h"
#include "platform/printpipeline/filterpipeline.h"

namespace cupsfilter {

class JobTicketFilter final : public platform::ComObject<IPrintPipelineFilter> {
public:
    // `delta` empty: the job ticket is left as it is.
    explicit JobTicketFilter(std::string delta) : m_delta(std::move(delta)) {}

    HRESULT InitializeFilter(IInterFilterCommunicator* communicator, IPrintPipelinePropertyBag* bag,
                             IPrintPipelineManagerControl* control) override;
    HRESULT ShutdownOperation() override;
    HRESULT StartOperation() override;

    // Stops the job (from the thread that runs it): every filter gets ShutdownOperation. False
    // before the pipeline initialised the filter: there is no job to stop yet.
    bool Stop();
    // Why the options could not be merged into the job ticket; empty when they were.
    std::string MergeFailure() const;

private:
    HRESULT Pump();
    HRESULT MergeOptions(IXpsDocumentConsumer* consumer, IFixedDocumentSequence* sequence);

    const std::string m_delta;
    CComPtr<IInterFilterCommunicator> m_communicator;
    CComPtr<IPrintPipelineManagerControl> m_control;
    std::atomic<bool> m_stop{false};
    mutable std::mutex m_failureMutex;
    std::string m_mergeFailure;
};

}  // namespace cupsfilter
