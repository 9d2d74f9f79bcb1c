// testfilters.h: small filters written directly against the pipeline interfaces, for driving
// the host in tests: pass-through, failing, throwing, shutdown-requesting, forgetful (never
// reports FilterFinished), slow, one that closes its output at once, one that adds a part of no
// walked kind after the sequence, and one that records the property bag it was given; a base for
// filters that edit pages; and a helper that runs a job through one filter.
#pragma once

#include <atomic>
#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>

#include "platform/com/atl.h"
#include "platform/com/comobject.h"
#include "platform/com/unicode.h"
#include "platform/printpipeline/filterpipeline.h"
#include "platform/win32/security.h"
#include "pipelinehost/jobrunner.h"

namespace testfilters {

// Sends a part on by its kind.
inline HRESULT ForwardPart(IXpsDocumentConsumer* consumer, IUnknown* part) {
    if (CComQIPtr<IXpsDocument> document = part) return consumer->SendXpsDocument(document);
    if (CComQIPtr<IFixedDocumentSequence> seq = part) {
        return consumer->SendFixedDocumentSequence(seq);
    }
    if (CComQIPtr<IFixedDocument> document = part) return consumer->SendFixedDocument(document);
    if (CComQIPtr<IFixedPage> page = part) return consumer->SendFixedPage(page);
    return consumer->SendXpsUnknown(part);
}

// A filter that hands every page to EditPage (numbered from 1) and forwards every other part;
// a failure ends the job through RequestShutdown.
class PageEditingFilter : public platform::ComObject<IPrintPipelineFilter> {
public:
    HRESULT InitializeFilter(IInterFilterCommunicator* communicator, IPrintPipelinePropertyBag*,
                             IPrintPipelineManagerControl* control) override {
        m_communicator = communicator;
        m_control = control;
        return S_OK;
    }
    HRESULT ShutdownOperation() override { return S_OK; }
    HRESULT StartOperation() override {
        HRESULT hr = Pump();
        if (FAILED(hr)) m_control->RequestShutdown(hr, nullptr);
        m_control->FilterFinished();
        return hr;
    }

protected:
    // Edits the page and sends it on (or not).
    virtual HRESULT EditPage(IXpsDocumentConsumer* consumer, IFixedPage* page, int number) = 0;

private:
    HRESULT Pump() {
        CComPtr<IXpsDocumentProvider> provider;
        CComPtr<IXpsDocumentConsumer> consumer;
        m_communicator->RequestReader(reinterpret_cast<void**>(&provider));
        m_communicator->RequestWriter(reinterpret_cast<void**>(&consumer));
        int pages = 0;
        for (;;) {
            CComPtr<IUnknown> part;
            HRESULT hr = provider->GetXpsPart(&part);
            if (FAILED(hr)) return hr;
            if (!part) break;
            if (CComQIPtr<IFixedPage> page = part) {
                hr = EditPage(consumer, page, ++pages);
            } else {
                hr = ForwardPart(consumer, part);
            }
            if (FAILED(hr)) return hr;
        }
        return consumer->CloseSender();
    }

    CComPtr<IInterFilterCommunicator> m_communicator;
    CComPtr<IPrintPipelineManagerControl> m_control;
};

enum class Mode {
    PassThrough,
    FailAfterFirstPart,
    FailAtTenthPage,  // forwards nine pages, then fails: a job stopped half-way
    Throw,
    RequestShutdown,
    Forgetful,
    Slow,
    EmptyOutput,  // sends nothing and closes its output
    ExtraPart,    // sends kExtraPartName, a new image part, as an unknown part after the sequence
};

inline constexpr const wchar_t* kExtraPartName = L"/Resources/Images/extra.png";
inline constexpr const char* kExtraPartBytes = "extra image bytes";

struct Observed {
    std::atomic<int> shutdownOperations{0};
    std::atomic<int> parts{0};
    std::mutex mutex;
    std::map<std::wstring, std::wstring> properties;  // read in InitializeFilter
};

class TestFilter final : public platform::ComObject<IPrintPipelineFilter> {
public:
    TestFilter(Mode mode, std::shared_ptr<Observed> observed)
        : m_mode(mode), m_observed(std::move(observed)) {}

    HRESULT InitializeFilter(IInterFilterCommunicator* communicator, IPrintPipelinePropertyBag* bag,
                             IPrintPipelineManagerControl* control) override {
        if (communicator == nullptr || bag == nullptr || control == nullptr) return E_POINTER;
        m_communicator = communicator;
        m_control = control;
        // Text properties by value, the others by their variant type; whether the token works.
        std::lock_guard<std::mutex> lock(m_observed->mutex);
        for (const wchar_t* name : {L"PrinterName", L"Greeting", L"PrintJobId", L"PrinterHandle",
                                    L"UserSecurityToken", L"PerUserPrintTicket"}) {
            CComVariant value;
            if (FAILED(bag->GetProperty(name, &value))) continue;
            m_observed->properties[name] =
                value.vt == VT_BSTR ? std::wstring(value.bstrVal) : std::to_wstring(value.vt);
            if (std::wstring(name) == L"UserSecurityToken") {
                bool usable = SetThreadToken(nullptr, reinterpret_cast<HANDLE>(value.intPtrVal));
                SetThreadToken(nullptr, nullptr);
                m_observed->properties[L"TokenUsable"] = usable ? L"yes" : L"no";
            }
        }
        return S_OK;
    }

    HRESULT ShutdownOperation() override {
        ++m_observed->shutdownOperations;
        m_stop = true;
        return S_OK;
    }

    HRESULT StartOperation() override {
        if (m_mode == Mode::Throw) throw std::runtime_error("test filter exploded");
        HRESULT hr = Pump();
        if (m_mode == Mode::RequestShutdown) {
            // Wait (bounded) for the host to deliver ShutdownOperation.
            for (int i = 0; i < 500 && !m_stop; ++i) {
                std::this_thread::sleep_for(std::chrono::milliseconds(2));
            }
        }
        if (m_mode != Mode::Forgetful) m_control->FilterFinished();
        return hr;
    }

private:
    HRESULT Pump() {
        CComPtr<IXpsDocumentProvider> provider;
        CComPtr<IXpsDocumentConsumer> consumer;
        HRESULT hr = m_communicator->RequestReader(reinterpret_cast<void**>(&provider));
        if (SUCCEEDED(hr)) hr = m_communicator->RequestWriter(reinterpret_cast<void**>(&consumer));
        if (FAILED(hr)) return hr;
        if (m_mode == Mode::EmptyOutput) return consumer->CloseSender();
        while (!m_stop) {
            CComPtr<IUnknown> part;
            hr = provider->GetXpsPart(&part);
            if (FAILED(hr)) return m_stop ? S_OK : hr;
            if (!part) break;
            ++m_observed->parts;
            if (m_mode == Mode::FailAfterFirstPart) return E_ACCESSDENIED;
            if (m_mode == Mode::FailAtTenthPage && CComQIPtr<IFixedPage>(part) && ++m_pages == 10) {
                return E_ACCESSDENIED;
            }
            if (m_mode == Mode::RequestShutdown && CComQIPtr<IFixedPage>(part)) {
                m_control->RequestShutdown(E_ABORT, nullptr);
                return S_OK;
            }
            if (m_mode == Mode::Slow) std::this_thread::sleep_for(std::chrono::milliseconds(2));
            hr = ForwardPart(consumer, part);
            if (SUCCEEDED(hr) && m_mode == Mode::ExtraPart &&
                CComQIPtr<IFixedDocumentSequence>(part)) {
                hr = SendExtraPart(consumer);
            }
            if (FAILED(hr)) return m_stop ? S_OK : hr;
        }
        if (m_stop) return S_OK;
        return consumer->CloseSender();
    }

    static HRESULT SendExtraPart(IXpsDocumentConsumer* consumer) {
        CComPtr<IUnknown> part;
        CComPtr<IPrintWriteStream> stream;
        HRESULT hr = consumer->GetNewEmptyPart(kExtraPartName, IID_IPartImage,
                                               reinterpret_cast<void**>(&part), &stream);
        if (FAILED(hr)) return hr;
        const std::string bytes = kExtraPartBytes;
        ULONG written = 0;
        hr = stream->WriteBytes(bytes.data(), static_cast<ULONG>(bytes.size()), &written);
        stream->Close();
        if (FAILED(hr)) return hr;
        return consumer->SendXpsUnknown(part);
    }

    Mode m_mode;
    std::shared_ptr<Observed> m_observed;
    CComPtr<IInterFilterCommunicator> m_communicator;
    CComPtr<IPrintPipelineManagerControl> m_control;
    std::atomic<bool> m_stop{false};
    int m_pages = 0;
};

// Runs a job through the one filter the factory makes.
inline pipelinehost::JobResult RunWithFilter(pipelinehost::FilterFactory factory,
                                             const std::string& input, const std::string& output) {
    pipelinehost::FilterRegistry registry;
    registry.AddBuiltin("f", std::move(factory));
    pipelinehost::PipelineConfig config;
    pipelinehost::FilterEntry filterEntry;
    filterEntry.name = "f";
    filterEntry.builtin = "f";
    config.filters.push_back(filterEntry);
    pipelinehost::JobOptions options;
    options.input = input;
    options.output = output;
    return pipelinehost::RunJob(config, registry, options);
}

}  // namespace testfilters
