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

namespace {

// One job, stage by stage, on the calling thread: open the input and make the filters, the
// writer and the links between them; fill the property bag and initialise every filter in
// order; start each filter's StartOperation on a thread of its own; supervise them until all
// have returned (sending ShutdownOperation to all when one asks the job to stop); release them;
// then decide from their reports whether the job succeeded and put the output in place.
class JobRun {
public:
    JobRun(const PipelineConfig& config, const FilterRegistry& registry, const JobOptions& options,
           JobResult& result, std::shared_ptr<JobStatus> status)
        : m_config(config),
          m_registry(registry),
          m_options(options),
          m_result(result),
          m_status(std::move(status)) {}

    void Run() {
        OpenJob();
        InitializeFilters();
        StartFilters();
        SuperviseFilters();
        ReleaseFilters();
        Conclude();
    }

private:
    // The input package and its reader, the ticket, the filters, the writer and the queues
    // that link filter N's consumer to filter N+1's provider.
    void OpenJob() {
        if (m_config.filters.empty()) {
            throw JobError(ErrorKind::Config, "the pipeline has no filter");
        }
        std::shared_ptr<SourcePackage> package =
            SourcePackage::Open(m_options.input, m_options.limits);
        package->SetStatus(m_status);
        m_reader.Attach(new JobReader(package, m_status));
        m_ticket = m_options.ticketFile.empty() ? std::string(DefaultPrintTicket())
                                                : ReadTicketFile(m_options.ticketFile);
        for (const FilterEntry& filterEntry : m_config.filters) {
            m_filters.push_back(m_modules.Create(m_registry, filterEntry));
        }
        if (m_options.output.empty()) throw JobError(ErrorKind::Output, "no output file named");
        m_writer.Attach(m_options.outputFd >= 0
                            ? new JobWriter(m_options.outputFd, m_options.output, m_status, Threads())
                            : new JobWriter(m_options.output, m_status, Threads()));
        for (std::size_t i = 0; i + 1 < m_filters.size(); ++i) {
            CComPtr<PartQueue> link;
            link.Attach(new PartQueue(m_options.queueCapacity));
            m_links.push_back(link);
        }
        for (const FilterEntry& filterEntry : m_config.filters) {
            FilterReport report;
            report.name = filterEntry.name;
            m_chain->reports.push_back(report);
        }
    }

    unsigned Threads() const {
        return m_options.threads > 0 ? m_options.threads : DeflatePool::DefaultThreads();
    }

    // The properties every filter finds in its bag.
    CComPtr<IPrintPipelinePropertyBag> MakePropertyBag() {
        CComPtr<IPrintPipelinePropertyBag> bag;
        bag.Attach(new PropertyBag());
        CComPtr<IPrintReadStreamFactory> ticketFactory;
        if (FAILED(platform::CreatePrintReadStreamFactoryOnBytes(m_ticket.data(), m_ticket.size(),
                                                                 &ticketFactory))) {
            throw JobError(ErrorKind::Internal, "out of memory");
        }
        Add(bag, XPS_FP_PRINTER_NAME,
            CComVariant(platform::Utf8ToWide(m_options.printerName).c_str()));
        Add(bag, XPS_FP_JOB_ID, CComVariant(static_cast<unsigned int>(m_options.jobId)));
        Add(bag, XPS_FP_PRINTER_HANDLE, HandleVariant(PlaceholderPrinterHandle()));
        Add(bag, XPS_FP_USER_TOKEN, HandleVariant(m_token.Get()));
        Add(bag, XPS_FP_USER_PRINT_TICKET, CComVariant(static_cast<IUnknown*>(ticketFactory.p)));
        Add(bag, XPS_FP_OUTPUT_FILE, CComVariant(platform::Utf8ToWide(m_options.output).c_str()));
        Add(bag, L"PageThreads", CComVariant(static_cast<ULONG>(Threads())));
        return bag;
    }

    // InitializeFilter, in order; a failure here ends the job before any filter runs.
    void InitializeFilters() {
        CComPtr<IPrintPipelinePropertyBag> bag = MakePropertyBag();
        for (std::size_t i = 0; i < m_filters.size(); ++i) {
            IXpsDocumentProvider* provider =
                i == 0 ? static_cast<IXpsDocumentProvider*>(m_reader.p)
                       : static_cast<IXpsDocumentProvider*>(m_links[i - 1].p);
            IXpsDocumentConsumer* consumer = i + 1 == m_filters.size()
                                                 ? static_cast<IXpsDocumentConsumer*>(m_writer.p)
                                                 : static_cast<IXpsDocumentConsumer*>(m_links[i].p);
            CComPtr<IInterFilterCommunicator> communicator;
            communicator.Attach(new Communicator(provider, consumer));
            CComPtr<IPrintPipelineManagerControl> control;
            control.Attach(new ManagerControl(m_chain, i));
            std::vector<std::pair<std::wstring, std::wstring>> parameters;
            for (const auto& [name, value] : m_config.filters[i].parameters) {
                parameters.emplace_back(platform::Utf8ToWide(name), platform::Utf8ToWide(value));
            }
            CComPtr<IPrintPipelinePropertyBag> view;
            view.Attach(new FilterPropertyBag(bag, std::move(parameters)));
            HRESULT hr;
            try {
                hr = m_filters[i]->InitializeFilter(communicator, view, control);
            } catch (...) {
                hr = E_FAIL;
            }
            m_chain->reports[i].initializeResult = hr;
            if (FAILED(hr)) {
                throw JobError(ErrorKind::Filter, "filter \"" + m_config.filters[i].name +
                                                      "\" failed to initialise (" + Hex(hr) + ")");
            }
            m_communicators.push_back(communicator);
            m_controls.push_back(control);
        }
    }

    // StartOperation, a thread per filter. A filter that fails, throws, or returns without
    // closing its output asks the job to stop.
    void StartFilters() {
        m_chain->running = m_filters.size();
        for (std::size_t i = 0; i < m_filters.size(); ++i) {
            m_threads.emplace_back([this, i] { RunFilter(i); });
        }
    }

    void RunFilter(std::size_t i) {
        HRESULT hr = E_FAIL;
        std::optional<std::string> thrown;
        try {
            hr = m_filters[i]->StartOperation();
        } catch (const std::exception& e) {
            thrown = e.what();
        } catch (...) {
            thrown = "an exception that is not a std::exception";
        }
        const bool closed = i + 1 == m_filters.size() ? m_writer->Complete() : m_links[i]->Closed();
        std::lock_guard<std::mutex> lock(m_chain->mutex);
        FilterReport& report = m_chain->reports[i];
        report.startResult = hr;
        report.exception = thrown;
        if (thrown || FAILED(hr) || (!closed && !m_chain->stopRequested)) {
            m_chain->RequestStop(i);
        }
        --m_chain->running;
        m_chain->changed.notify_all();
    }

    // A stop request sends ShutdownOperation to every filter once, and cancels the links so that
    // no filter stays blocked on them. Filters that have already returned get it too: the request
    // may come from the last filter to finish.
    void SendShutdown() {
        m_shutdownSent = true;
        for (std::size_t i = 0; i < m_filters.size(); ++i) {
            {
                std::lock_guard<std::mutex> count(m_chain->mutex);
                ++m_chain->reports[i].shutdownOperationCalls;
            }
            try {
                m_filters[i]->ShutdownOperation();
            } catch (...) {
            }
        }
        for (auto& link : m_links) link->Cancel();
    }

    // Waits for every filter thread, answering stop requests and reporting progress about ten
    // times a second.
    void SuperviseFilters() {
        {
            std::unique_lock<std::mutex> lock(m_chain->mutex);
            while (m_chain->running > 0) {
                if (m_chain->stopRequested && !m_shutdownSent) {
                    lock.unlock();
                    SendShutdown();
                    lock.lock();
                    continue;
                }
                m_chain->changed.wait_for(lock, std::chrono::milliseconds(100));
                if (m_options.progress) {
                    lock.unlock();
                    m_options.progress(m_writer->PagesWritten());
                    lock.lock();
                }
            }
            const bool stopUnanswered = m_chain->stopRequested && !m_shutdownSent;
            lock.unlock();
            if (stopUnanswered) SendShutdown();
        }
        for (std::thread& thread : m_threads) thread.join();
        m_threads.clear();
        if (m_options.progress) m_options.progress(m_writer->PagesWritten());
    }

    // Releases the filters (a filter that never reported does so in its destructor).
    void ReleaseFilters() {
        m_communicators.clear();
        m_controls.clear();
        m_filters.clear();
        for (auto& link : m_links) m_result.queueHighWater.push_back(link->HighWaterMark());
        m_links.clear();
        m_reader.Release();
    }

    // The job's outcome from the reports; the output is put in place only when every filter
    // succeeded and reported, and the last one closed its output.
    void Conclude() {
        std::lock_guard<std::mutex> lock(m_chain->mutex);
        m_result.filters = m_chain->reports;
        m_result.pages = m_writer->PagesWritten();
        // A filter that stops the job closes its output first, so the writer may have failed
        // for want of parts ("no fixed document sequence"): the filter's own report says more.
        std::optional<JobError> error = m_status->Error();
        if (error && !(m_chain->stopRequested && error->Kind() == ErrorKind::Filter)) throw *error;
        if (m_chain->stopRequested) ThrowStopReason(m_chain->reports[m_chain->stoppedBy]);
        for (const FilterReport& report : m_chain->reports) {
            if (report.filterFinishedCalls == 0) {
                throw JobError(ErrorKind::Filter,
                               "filter \"" + report.name + "\" did not report FilterFinished");
            }
        }
        if (!m_writer->Complete()) {
            throw JobError(ErrorKind::Filter, "the last filter did not close its output");
        }
        m_writer->Commit();
        m_result.succeeded = true;
    }

    [[noreturn]] static void ThrowStopReason(const FilterReport& report) {
        const std::string who = "filter \"" + report.name + "\"";
        if (report.exception)
            throw JobError(ErrorKind::Filter, who + " threw: " + *report.exception);
        if (report.shutdownRequest) {
            throw JobError(ErrorKind::Filter,
                           who + " stopped the job (" + Hex(*report.shutdownRequest) + ")");
        }
        if (FAILED(report.startResult)) {
            throw JobError(ErrorKind::Filter, who + " failed (" + Hex(report.startResult) + ")");
        }
        throw JobError(ErrorKind::Filter, who + " returned without closing its output");
    }

    const PipelineConfig& m_config;
    const FilterRegistry& m_registry;
    const JobOptions& m_options;
    JobResult& m_result;
    std::shared_ptr<JobStatus> m_status;
    std::shared_ptr<Chain> m_chain = std::make_shared<Chain>();
    // Released in the reverse order: the filters before the modules that hold their code, the
    // reader (and the input package) last.
    CComPtr<JobReader> m_reader;
    std::string m_ticket;
    ProcessToken m_token;
    FilterModules m_modules;
    std::vector<CComPtr<IPrintPipelineFilter>> m_filters;
    CComPtr<JobWriter> m_writer;
    std::vector<CComPtr<PartQueue>> m_links;
    std::vector<CComPtr<IInterFilterCommunicator>> m_communicators;
    std::vector<CComPtr<IPrintPipelineManagerControl>> m_controls;
    std::vector<std::thread> m_threads;
    bool m_shutdownSent = false;
};

}  // namespace

JobResult RunJob(const PipelineConfig& config, const FilterRegistry& registry,
                 const JobOptions& options) {
    const auto started = std::chrono::steady_clock::now();
    JobResult result;
    auto status = std::make_shared<JobStatus>();
    try {
        // Everything the run holds is released before its outcome is read.
        JobRun(config, registry, options, result, status).Run();
    } catch (const JobError& error) {
        // The first error recorded is the cause, unless both are the filters' and the one
        // thrown names the filter that stopped the job (see Conclude).
        std::optional<JobError> first = status->Error();
        const bool filterReport =
            first && first->Kind() == ErrorKind::Filter && error.Kind() == ErrorKind::Filter;
        result.error = first && !filterReport ? *first : error;
    } catch (const std::bad_alloc&) {
        result.error = JobError(ErrorKind::Internal, "out of memory");
    } catch (const std::exception& error) {
        result.error = JobError(ErrorKind::Internal, error.what());
    }
    result.warnings = status->Warnings();
    result.seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    return result;
}

}  // namespace pipelinehost
