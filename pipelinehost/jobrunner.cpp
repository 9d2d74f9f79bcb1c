// jobrunner.cpp: one job through the filter chain, a thread per filter.
#include "pipelinehost/jobrunner.h"

#include <libxml/parser.h>

#include <condition_variable>
#include <fstream>
#include <mutex>
#include <thread>

#include "platform/com/atl.h"
#include "platform/com/comobject.h"
#include "platform/com/unicode.h"
#include "platform/msxml/domtree.h"
#include "platform/printpipeline/printstreams.h"
#include "platform/prntvpt/prntvpt.h"
#include "platform/win32/kernel.h"
#include "platform/win32/security.h"
#include "pipelinehost/defaultticket.h"
#include "pipelinehost/jobreader.h"
#include "pipelinehost/jobwriter.h"
#include "pipelinehost/partqueue.h"
#include "pipelinehost/propertybag.h"

namespace pipelinehost {
namespace {

std::string Hex(HRESULT hr) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(hr));
    return text;
}

// State shared by the runner, the filter threads and the manager controls.
struct Chain {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<FilterReport> reports;
    bool stopRequested = false;
    std::size_t stoppedBy = 0;
    std::size_t running = 0;

    void RequestStop(std::size_t index) {
        if (!stopRequested) {
            stopRequested = true;
            stoppedBy = index;
        }
        changed.notify_all();
    }
};

class ManagerControl final : public platform::ComObject<IPrintPipelineManagerControl> {
public:
    ManagerControl(std::shared_ptr<Chain> chain, std::size_t index)
        : m_chain(std::move(chain)), m_index(index) {}
    HRESULT RequestShutdown(HRESULT reason, IImgErrorInfo* /*info*/) override {
        std::lock_guard<std::mutex> lock(m_chain->mutex);
        FilterReport& report = m_chain->reports[m_index];
        if (!report.shutdownRequest) report.shutdownRequest = reason;
        m_chain->RequestStop(m_index);
        return S_OK;
    }
    HRESULT FilterFinished() override {
        std::lock_guard<std::mutex> lock(m_chain->mutex);
        ++m_chain->reports[m_index].filterFinishedCalls;
        m_chain->changed.notify_all();
        return S_OK;
    }

private:
    std::shared_ptr<Chain> m_chain;
    std::size_t m_index;
};

class Communicator final : public platform::ComObject<IInterFilterCommunicator> {
public:
    Communicator(IXpsDocumentProvider* provider, IXpsDocumentConsumer* consumer)
        : m_provider(provider), m_consumer(consumer) {}
    HRESULT RequestReader(void** reader) override {
        if (reader == nullptr) return E_POINTER;
        IXpsDocumentProvider* provider = m_provider;
        if (provider != nullptr) provider->AddRef();
        *reader = provider;
        return provider == nullptr ? E_UNEXPECTED : S_OK;
    }
    HRESULT RequestWriter(void** writer) override {
        if (writer == nullptr) return E_POINTER;
        IXpsDocumentConsumer* consumer = m_consumer;
        if (consumer != nullptr) consumer->AddRef();
        *writer = consumer;
        return consumer == nullptr ? E_UNEXPECTED : S_OK;
    }

private:
    CComPtr<IXpsDocumentProvider> m_provider;
    CComPtr<IXpsDocumentConsumer> m_consumer;
};

// The per-user ticket file: read up to the ticket size limit (a larger file is refused before
// it is read whole) and checked to be well-formed XML without a DTD, which the filters' DOM
// refuses as MSXML does (so a DTD would otherwise only fail the job inside a filter).
std::string ReadTicketFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw JobError(ErrorKind::BadTicket, "cannot open the ticket file " + path);
    std::string bytes;
    char buffer[64 * 1024];
    while (in.read(buffer, sizeof buffer) || in.gcount() > 0) {
        bytes.append(buffer, static_cast<std::size_t>(in.gcount()));
        if (bytes.size() > platform::kMaxPrintTicketBytes) {
            throw JobError(ErrorKind::BadTicket,
                           "the ticket file " + path + " is too large (over " +
                               std::to_string(platform::kMaxPrintTicketBytes) + " bytes)");
        }
    }
    if (in.bad()) throw JobError(ErrorKind::BadTicket, "cannot read the ticket file " + path);
    platform::msxml::EnsureLibxml();
    xmlDoc* doc = xmlReadMemory(bytes.data(), static_cast<int>(bytes.size()), nullptr, nullptr,
                                XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
    if (doc == nullptr) {
        throw JobError(ErrorKind::BadTicket, "the ticket file " + path + " is not well-formed XML");
    }
    const bool hasDtd = doc->intSubset != nullptr;
    xmlFreeDoc(doc);
    if (hasDtd) {
        throw JobError(ErrorKind::BadTicket,
                       "the ticket file " + path + " has a DTD, which a PrintTicket may not have");
    }
    return bytes;
}

void Add(IPrintPipelinePropertyBag* bag, const wchar_t* name, const CComVariant& value) {
    HRESULT hr = bag->AddProperty(name, &value);
    if (FAILED(hr)) throw JobError(ErrorKind::Internal, "cannot fill the property bag");
}

CComVariant HandleVariant(HANDLE handle) {
    CComVariant value;
    value.vt = VT_INT_PTR;
    value.intPtrVal = reinterpret_cast<INT_PTR>(handle);
    return value;
}

char g_printerHandle;

// The job owner's token: the process token, open for the job's duration.
class ProcessToken {
public:
    ProcessToken() {
        if (!OpenProcessToken(GetCurrentProcess(), TOKEN_ALL_ACCESS, &m_token)) {
            throw JobError(ErrorKind::Internal, "cannot open the process token");
        }
    }
    ~ProcessToken() { CloseHandle(m_token); }
    ProcessToken(const ProcessToken&) = delete;
    ProcessToken& operator=(const ProcessToken&) = delete;
    HANDLE Get() const { return m_token; }

private:
    HANDLE m_token = nullptr;
};

}  // namespace

HANDLE PlaceholderPrinterHandle() {
    return &g_printerHandle;
}

JobResult RunJob(const PipelineConfig& config, const FilterRegistry& registry,
                 const JobOptions& options) {
    auto started = std::chrono::steady_clock::now();
    JobResult result;
    auto status = std::make_shared<JobStatus>();
    auto finish = [&] {
        result.warnings = status->Warnings();
        result.seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
        return result;
    };
    try {
        if (config.filters.empty()) throw JobError(ErrorKind::Config, "the pipeline has no filter");
        std::shared_ptr<SourcePackage> package = SourcePackage::Open(options.input, options.limits);
        package->SetStatus(status);
        CComPtr<JobReader> reader;
        reader.Attach(new JobReader(package, status));
        std::string ticket = options.ticketFile.empty() ? std::string(DefaultPrintTicket())
                                                        : ReadTicketFile(options.ticketFile);

        ProcessToken token;
        FilterModules modules;
        std::vector<CComPtr<IPrintPipelineFilter>> filters;
        for (const FilterEntry& filterEntry : config.filters)
            filters.push_back(modules.Create(registry, filterEntry));
        if (options.output.empty()) throw JobError(ErrorKind::Output, "no output file named");
        CComPtr<JobWriter> writer;
        writer.Attach(options.outputFd >= 0
                          ? new JobWriter(options.outputFd, options.output, status)
                          : new JobWriter(options.output, status));

        std::vector<CComPtr<PartQueue>> links;
        for (std::size_t i = 0; i + 1 < filters.size(); ++i) {
            CComPtr<PartQueue> link;
            link.Attach(new PartQueue(options.queueCapacity));
            links.push_back(link);
        }

        CComPtr<IPrintPipelinePropertyBag> bag;
        bag.Attach(new PropertyBag());
        CComPtr<IPrintReadStreamFactory> ticketFactory;
        if (FAILED(platform::CreatePrintReadStreamFactoryOnBytes(ticket.data(), ticket.size(),
                                                                 &ticketFactory))) {
            throw JobError(ErrorKind::Internal, "out of memory");
        }
        Add(bag, XPS_FP_PRINTER_NAME,
            CComVariant(platform::Utf8ToWide(options.printerName).c_str()));
        Add(bag, XPS_FP_JOB_ID, CComVariant(static_cast<unsigned int>(options.jobId)));
        Add(bag, XPS_FP_PRINTER_HANDLE, HandleVariant(PlaceholderPrinterHandle()));
        Add(bag, XPS_FP_USER_TOKEN, HandleVariant(token.Get()));
        Add(bag, XPS_FP_USER_PRINT_TICKET, CComVariant(static_cast<IUnknown*>(ticketFactory.p)));
        Add(bag, XPS_FP_OUTPUT_FILE, CComVariant(platform::Utf8ToWide(options.output).c_str()));

        auto chain = std::make_shared<Chain>();
        for (const FilterEntry& filterEntry : config.filters) {
            FilterReport report;
            report.name = filterEntry.name;
            chain->reports.push_back(report);
        }

        // InitializeFilter, in order; a failure here ends the job before any filter runs.
        std::vector<CComPtr<IInterFilterCommunicator>> communicators;
        std::vector<CComPtr<IPrintPipelineManagerControl>> controls;
        for (std::size_t i = 0; i < filters.size(); ++i) {
            IXpsDocumentProvider* provider =
                i == 0 ? static_cast<IXpsDocumentProvider*>(reader.p)
                       : static_cast<IXpsDocumentProvider*>(links[i - 1].p);
            IXpsDocumentConsumer* consumer = i + 1 == filters.size()
                                                 ? static_cast<IXpsDocumentConsumer*>(writer.p)
                                                 : static_cast<IXpsDocumentConsumer*>(links[i].p);
            CComPtr<IInterFilterCommunicator> communicator;
            communicator.Attach(new Communicator(provider, consumer));
            CComPtr<IPrintPipelineManagerControl> control;
            control.Attach(new ManagerControl(chain, i));
            std::vector<std::pair<std::wstring, std::wstring>> parameters;
            for (const auto& [name, value] : config.filters[i].parameters) {
                parameters.emplace_back(platform::Utf8ToWide(name), platform::Utf8ToWide(value));
            }
            CComPtr<IPrintPipelinePropertyBag> view;
            view.Attach(new FilterPropertyBag(bag, std::move(parameters)));
            HRESULT hr;
            try {
                hr = filters[i]->InitializeFilter(communicator, view, control);
            } catch (...) {
                hr = E_FAIL;
            }
            chain->reports[i].initializeResult = hr;
            if (FAILED(hr)) {
                throw JobError(ErrorKind::Filter, "filter \"" + config.filters[i].name +
                                                      "\" failed to initialise (" + Hex(hr) + ")");
            }
            communicators.push_back(communicator);
            controls.push_back(control);
        }

        // StartOperation, a thread per filter.
        std::vector<std::thread> threads;
        chain->running = filters.size();
        for (std::size_t i = 0; i < filters.size(); ++i) {
            threads.emplace_back([&, i] {
                HRESULT hr = E_FAIL;
                std::optional<std::string> thrown;
                try {
                    hr = filters[i]->StartOperation();
                } catch (const std::exception& e) {
                    thrown = e.what();
                } catch (...) {
                    thrown = "an exception that is not a std::exception";
                }
                bool closed = i + 1 == filters.size() ? writer->Complete() : links[i]->Closed();
                std::lock_guard<std::mutex> lock(chain->mutex);
                FilterReport& report = chain->reports[i];
                report.startResult = hr;
                report.exception = thrown;
                if (thrown || FAILED(hr) || (!closed && !chain->stopRequested)) {
                    chain->RequestStop(i);
                }
                --chain->running;
                chain->changed.notify_all();
            });
        }

        // A stop request sends ShutdownOperation to every filter once, and cancels the links so
        // that no filter stays blocked on them. Filters that have already returned get it too:
        // the request may come from the last filter to finish.
        bool shutdownSent = false;
        auto sendShutdown = [&] {
            shutdownSent = true;
            for (std::size_t i = 0; i < filters.size(); ++i) {
                {
                    std::lock_guard<std::mutex> count(chain->mutex);
                    ++chain->reports[i].shutdownOperationCalls;
                }
                try {
                    filters[i]->ShutdownOperation();
                } catch (...) {
                }
            }
            for (auto& link : links) link->Cancel();
        };
        {
            std::unique_lock<std::mutex> lock(chain->mutex);
            while (chain->running > 0) {
                if (chain->stopRequested && !shutdownSent) {
                    lock.unlock();
                    sendShutdown();
                    lock.lock();
                    continue;
                }
                chain->changed.wait_for(lock, std::chrono::milliseconds(100));
                if (options.progress) {
                    lock.unlock();
                    options.progress(writer->PagesWritten());
                    lock.lock();
                }
            }
            const bool stopUnanswered = chain->stopRequested && !shutdownSent;
            lock.unlock();
            if (stopUnanswered) sendShutdown();
        }
        for (std::thread& thread : threads) thread.join();
        if (options.progress) options.progress(writer->PagesWritten());

        // Release the filters (a filter that never reported does so in its destructor).
        communicators.clear();
        controls.clear();
        filters.clear();
        for (auto& link : links) result.queueHighWater.push_back(link->HighWaterMark());
        links.clear();
        reader.Release();

        std::lock_guard<std::mutex> lock(chain->mutex);
        result.filters = chain->reports;
        result.pages = writer->PagesWritten();
        // A filter that stops the job closes its output first, so the writer may have failed
        // for want of parts ("no fixed document sequence"): the filter's own report says more.
        std::optional<JobError> error = status->Error();
        if (error && !(chain->stopRequested && error->Kind() == ErrorKind::Filter)) throw *error;
        if (chain->stopRequested) {
            const FilterReport& report = chain->reports[chain->stoppedBy];
            std::string who = "filter \"" + report.name + "\"";
            if (report.exception) {
                throw JobError(ErrorKind::Filter, who + " threw: " + *report.exception);
            }
            if (report.shutdownRequest) {
                throw JobError(ErrorKind::Filter,
                               who + " stopped the job (" + Hex(*report.shutdownRequest) + ")");
            }
            if (FAILED(report.startResult)) {
                throw JobError(ErrorKind::Filter,
                               who + " failed (" + Hex(report.startResult) + ")");
            }
            throw JobError(ErrorKind::Filter, who + " returned without closing its output");
        }
        for (const FilterReport& report : chain->reports) {
            if (report.filterFinishedCalls == 0) {
                throw JobError(ErrorKind::Filter,
                               "filter \"" + report.name + "\" did not report FilterFinished");
            }
        }
        if (!writer->Complete()) {
            throw JobError(ErrorKind::Filter, "the last filter did not close its output");
        }
        writer->Commit();
        result.succeeded = true;
    } catch (const JobError& error) {
        // The first error recorded is the cause, unless both are the filters' and the one
        // thrown names the filter that stopped the job (see above).
        std::optional<JobError> first = status->Error();
        const bool filterReport =
            first && first->Kind() == ErrorKind::Filter && error.Kind() == ErrorKind::Filter;
        result.error = first && !filterReport ? *first : error;
    } catch (const std::bad_alloc&) {
        result.error = JobError(ErrorKind::Internal, "out of memory");
    } catch (const std::exception& error) {
        result.error = JobError(ErrorKind::Internal, error.what());
    }
    return finish();
}

}  // namespace pipelinehost
