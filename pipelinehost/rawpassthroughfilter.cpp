// rawpassthroughfilter.cpp: the interface-level pass-through filter.
#include "pipelinehost/rawpassthroughfilter.h"

#include <atomic>
#include <new>

#include "platform/com/atl.h"
#include "platform/com/comobject.h"

namespace pipelinehost {
namespace {

class RawPassThroughFilter final : public platform::ComObject<IPrintPipelineFilter> {
public:
    HRESULT InitializeFilter(IInterFilterCommunicator* communicator, IPrintPipelinePropertyBag* bag,
                             IPrintPipelineManagerControl* control) override {
        if (communicator == nullptr || bag == nullptr || control == nullptr) return E_POINTER;
        m_communicator = communicator;
        m_control = control;
        return S_OK;
    }

    HRESULT ShutdownOperation() override {
        m_stop = true;
        return S_OK;
    }

    HRESULT StartOperation() override {
        HRESULT hr = Pump();
        if (FAILED(hr) && !m_stop) m_control->RequestShutdown(hr, nullptr);
        m_control->FilterFinished();
        return m_stop ? S_OK : hr;
    }

private:
    HRESULT Pump() {
        if (!m_communicator) return E_PENDING;
        CComPtr<IXpsDocumentProvider> provider;
        CComPtr<IXpsDocumentConsumer> consumer;
        HRESULT hr = m_communicator->RequestReader(reinterpret_cast<void**>(&provider));
        if (SUCCEEDED(hr)) hr = m_communicator->RequestWriter(reinterpret_cast<void**>(&consumer));
        if (FAILED(hr)) return hr;
        while (!m_stop) {
            CComPtr<IUnknown> part;
            hr = provider->GetXpsPart(&part);
            if (FAILED(hr)) return hr;
            if (!part) break;
            hr = Forward(consumer, part);
            if (FAILED(hr)) return hr;
        }
        return consumer->CloseSender();
    }

    static HRESULT Forward(IXpsDocumentConsumer* consumer, IUnknown* part) {
        if (CComQIPtr<IXpsDocument> document = part) return consumer->SendXpsDocument(document);
        if (CComQIPtr<IFixedDocumentSequence> sequence = part) {
            return consumer->SendFixedDocumentSequence(sequence);
        }
        if (CComQIPtr<IFixedDocument> document = part) return consumer->SendFixedDocument(document);
        if (CComQIPtr<IFixedPage> page = part) return consumer->SendFixedPage(page);
        return consumer->SendXpsUnknown(part);
    }

    CComPtr<IInterFilterCommunicator> m_communicator;
    CComPtr<IPrintPipelineManagerControl> m_control;
    std::atomic<bool> m_stop{false};
};

}  // namespace

HRESULT CreateRawPassThroughFilter(IPrintPipelineFilter** filter) {
    if (filter == nullptr) return E_POINTER;
    *filter = new (std::nothrow) RawPassThroughFilter();
    return *filter == nullptr ? E_OUTOFMEMORY : S_OK;
}

}  // namespace pipelinehost
