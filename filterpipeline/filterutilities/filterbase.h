// filterbase.h: FilterBase, the base of every filter of the driver: the object the print filter
// pipeline creates, initialises, starts and shuts down through IPrintPipelineFilter. It holds the
// filter's connection to the pipeline, the job's PrintTicketManager and the job facts read from
// the property bag, and reports completion to the pipeline exactly once. StartOperation is
// supplied by XpsFilterBase or by a driver filter.
#pragma once

#include <atomic>

#include "filterpipeline/filterutilities/cunknown.h"
#include "filterpipeline/filterutilities/printticketmanager.h"
#include "platform/com/com.h"
#include "platform/printpipeline/filterpipeline.h"
#include "support/utilities/cxstring.h"

class FilterBase : public CUnknown<IPrintPipelineFilter> {
public:
    FilterBase();
    ~FilterBase() override;
    FilterBase(const FilterBase&) = delete;
    FilterBase& operator=(const FilterBase&) = delete;

    // Stores the three pipeline objects. Any null: E_POINTER, nothing stored, and a shutdown
    // request to a manager control held from an earlier call.
    HRESULT InitializeFilter(IInterFilterCommunicator* communicator,
                             IPrintPipelinePropertyBag* propertyBag,
                             IPrintPipelineManagerControl* managerControl) override;
    // Called by the pipeline on its own thread: reports completion, which also stops the walk.
    HRESULT ShutdownOperation() override;

    // "PrinterHandle" and "PrintJobId" from the property bag, read once and cached. Without a
    // property bag: E_POINTER, and the not-read value (all bits set) is written.
    HRESULT GetPrinterHandleFromPropertyBag(HANDLE* handle);
    HRESULT GetJobIdFromPropertyBag(DWORD* jobId);

protected:
    // Initialises the ticket manager from "PerUserPrintTicket", "PrinterName" and
    // "UserSecurityToken". E_PENDING before InitializeFilter.
    HRESULT InitializePrintTicketManager();
    // Tells the manager control once that this filter has finished.
    void FilterFinished();
    void RequestShutdown(HRESULT reason);

    CComPtr<IInterFilterCommunicator> m_pInterFilterCommunicator;
    CComPtr<IPrintPipelineManagerControl> m_pManagerControl;
    CComPtr<IPrintPipelinePropertyBag> m_pPropertyBag;
    PrintTicketManager m_printTicketManager;
    // Set to 1 once the completion report is made; also the walker's stop signal, written by
    // the pipeline's thread and read between parts by the filter thread.
    std::atomic<LONG> m_filterFinished{0};
    CXString m_printerName;
    HANDLE m_printerHandle;
    DWORD m_jobId;
};
