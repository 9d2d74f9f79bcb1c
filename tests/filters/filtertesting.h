// filtertesting.h: helpers of the sample filters' tests: runs a filter over fake pipeline parts
// on the calling thread, writes pipeline configurations, and reads tickets of an output package
// with the filter library's own documents, manager and typed view.
#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "../filterpipeline/filterutilities/pipelinefakes.h"
#include "../tools/toolrunner.h"
#include "filterpipeline/filterutilities/printreadstreamtoistream.h"
#include "filterpipeline/filterutilities/printticketmanager.h"
#include "filterpipeline/filterutilities/printticketxmldocument.h"
#include "outputpackage.h"
#include "platform/com/unicode.h"
#include "platform/printpipeline/printstreams.h"

namespace filtertesting {

namespace fs = std::filesystem;

template <class T>
CComPtr<T> Make() {
    CComPtr<T> p;
    p.Attach(new T());
    return p;
}

// A pipeline configuration of one or more filters; each filter is (attributes, parameters).
struct FilterEntry {
    std::string attributes;  // e.g. name="st" builtin="setticket"
    std::vector<std::pair<std::string, std::string>> parameters;
};

inline std::string WriteConfig(const fs::path& dir, const std::vector<FilterEntry>& filters) {
    std::string xml = "<Filters>";
    for (const FilterEntry& filter : filters) {
        xml += "<Filter " + filter.attributes + ">";
        for (const auto& [name, value] : filter.parameters) {
            xml += "<Parameter name=\"" + name + "\" value=\"" + value + "\"/>";
        }
        xml += "</Filter>";
    }
    xml += "</Filters>";
    const std::string path = (dir / "pipeline.xml").string();
    std::ofstream(path) << xml;
    return path;
}

inline std::string ModulePath(const std::string& name) {
    return std::string(FU_BINARY_DIR) + "/lib/lib" + name + "filter.so";
}

// A job through `xpsfilter run -q` with a pipeline of `filters`, in a work folder of its own.
struct JobRun {
    fs::path dir;
    std::string output;
    toolrunner::Outcome outcome;
};

inline JobRun RunFilters(const std::string& name, const std::string& input,
                         const std::vector<FilterEntry>& filters) {
    JobRun run;
    run.dir = toolrunner::WorkDir(name);
    run.output = (run.dir / "out.xps").string();
    const std::string config = WriteConfig(run.dir, filters);
    run.outcome = toolrunner::RunTool({"run", "-q", "--pipeline", config, input, run.output});
    return run;
}

// Runs a filter over fake parts on this thread: the provider yields `parts`, the consumer
// records what the filter sends. Returns StartOperation's result.
struct FakeJob {
    FakeJob() {
        bag = Make<fakes::PropertyBag>();
        bag->FillJobProperties();
        provider = Make<fakes::Provider>();
        consumer = Make<fakes::Consumer>();
        communicator = Make<fakes::Communicator>();
        communicator->reader_ = static_cast<IXpsDocumentProvider*>(provider.p);
        communicator->writer_ = static_cast<IXpsDocumentConsumer*>(consumer.p);
        control = Make<fakes::ManagerControl>();
    }

    void SetParameter(const wchar_t* name, const wchar_t* value) {
        CComVariant text(value);
        bag->AddProperty(name, &text);
    }

    HRESULT Initialize(IPrintPipelineFilter* filter) {
        return filter->InitializeFilter(communicator, bag, control);
    }

    HRESULT Run(IPrintPipelineFilter* filter) {
        HRESULT hr = Initialize(filter);
        if (FAILED(hr)) return hr;
        return filter->StartOperation();
    }

    CComPtr<fakes::PropertyBag> bag;
    CComPtr<fakes::Provider> provider;
    CComPtr<fakes::Consumer> consumer;
    CComPtr<fakes::Communicator> communicator;
    CComPtr<fakes::ManagerControl> control;
};

// A DOM loaded from text through the manager's loader; null when it does not parse.
inline CComPtr<IXMLDOMDocument2> LoadDom(const std::string& xml) {
    CComPtr<IPrintReadStream> read;
    if (FAILED(platform::CreatePrintReadStreamOnBytes(xml.data(), xml.size(), &read))) return {};
    CComPtr<IStream> stream;
    stream.Attach(new CPrintReadStreamToIStream(read));
    CComPtr<IXMLDOMDocument2> dom;
    if (FAILED(PrintTicketManager::SetPTFromStream(stream, &dom))) return {};
    return dom;
}

// The selected option of a public feature of a ticket ("" when absent), e.g. ISOA4.
inline std::string FeatureOption(const std::string& ticketXml, const wchar_t* feature) {
    CComPtr<IXMLDOMDocument2> dom = LoadDom(ticketXml);
    if (!dom) return "<unparsable>";
    PrintTicketXmlDocument ticket(dom);
    CComBSTR option;
    if (ticket.GetFeatureOption(feature, &option) != S_OK) return "";
    return platform::WideToUtf8(option.m_str == nullptr ? L"" : option.m_str);
}

// The integer value of a public scored property of a feature's option, or -1.
inline int ScoredValue(const std::string& ticketXml, const wchar_t* feature,
                       const wchar_t* property) {
    CComPtr<IXMLDOMDocument2> dom = LoadDom(ticketXml);
    if (!dom) return -1;
    PrintTicketXmlDocument ticket(dom);
    int value = -1;
    if (ticket.GetScoredPropertyValue(feature, property, &value) != S_OK) return -1;
    return value;
}

// The text of the public ParameterInit's Value ("" when absent).
inline std::string ParameterValue(const std::string& ticketXml, const wchar_t* name) {
    CComPtr<IXMLDOMDocument2> dom = LoadDom(ticketXml);
    if (!dom) return "<unparsable>";
    PrintTicketXmlDocument ticket(dom);
    CComPtr<IXMLDOMNode> value;
    if (ticket.GetParameterInitValueNodeIfExists(ticket.GetKeywordsNsPrefix(), name, &value) !=
        S_OK) {
        return "";
    }
    CComBSTR text;
    value->get_text(&text);
    return platform::WideToUtf8(text.m_str == nullptr ? L"" : text.m_str);
}

inline std::string SampleDefaultTicket() {
    return toolrunner::ReadFile(std::string(FU_SOURCE_DIR) + "/samples/default_ticket.xml");
}

// Initialises a ticket manager as a filter's is, with the sample default ticket.
inline void InitialiseWithSampleDefaultTicket(PrintTicketManager& manager) {
    const std::string defaultTicket = SampleDefaultTicket();
    CComPtr<IPrintReadStream> stream;
    EXPECT_EQ(
        platform::CreatePrintReadStreamOnBytes(defaultTicket.data(), defaultTicket.size(), &stream),
        S_OK);
    CComBSTR printer(L"test");
    EXPECT_EQ(manager.Initialise(stream, printer, nullptr), S_OK);
}

// What the typed view of the library reports for the orientation of a page of an output
// package. The job's ticket is installed in a ticket manager and, down to `scope`, the
// document's and the page's; the scopes below `scope` inherit from it. (The view looks a
// Page... feature up from the page ticket upwards, whatever the view's own scope.)
inline PrintSchema::PageOrientation::EOrientationOption ViewedOrientation(
    const outputpackage::Package& package, const std::string& document, const std::string& page,
    EPrintTicketScope scope, bool* found) {
    PrintTicketManager manager;
    InitialiseWithSampleDefaultTicket(manager);
    auto install = [&](EPrintTicketScope at, const std::string& part) {
        const std::string ticket = package.TicketOf(part);
        CComPtr<IXMLDOMDocument2> dom;
        if (!ticket.empty()) dom = LoadDom(package.Part(ticket));
        EXPECT_EQ(manager.InitializeWithPrintTicket(at, dom.p), S_OK) << part;
    };
    install(kPTJobScope, package.SequenceName());
    if (scope <= kPTDocumentScope) install(kPTDocumentScope, document);
    if (scope <= kPTPageScope) install(kPTPageScope, page);
    XpsFilterPrintTicket* view = nullptr;
    EXPECT_EQ(manager.GetTicket(kPTPageScope, &view), S_OK);
    if (view == nullptr) return PrintSchema::PageOrientation::Portrait;
    HRESULT status = S_OK;
    return view->GetOrientation(found, &status);
}

}  // namespace filtertesting
