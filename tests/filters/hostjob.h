// hostjob.h: what the tests of filters inside the real pipeline host share: a chain of filters
// registered as built-ins, run over a job, and a two-document job (made with libzip) whose
// tickets differ by level.
#pragma once

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "../pipelinehost/testpackages.h"
#include "pipelinehost/jobrunner.h"

namespace hostjob {

namespace tp = testpackages;

inline std::string OrientationTicket(const char* option) {
    return std::string(
               "<psf:PrintTicket "
               "xmlns:psf=\"http://schemas.microsoft.com/windows/2003/08/printing/"
               "printschemaframework\" "
               "xmlns:psk=\"http://schemas.microsoft.com/windows/2003/08/printing/"
               "printschemakeywords\" version=\"1\">"
               "<psf:Feature name=\"psk:PageOrientation\"><psf:Option name=\"psk:") +
           option + "\"/></psf:Feature></psf:PrintTicket>";
}

// Two documents of `first` and `second` pages (/Documents/<d>/Pages/<i>.fpage). The job's ticket
// says portrait, the second document's landscape; page 2 of document 1 says landscape and page 1
// of document 2 portrait; the other pages carry no ticket of their own.
inline std::string TwoDocumentJob(int first, int second) {
    std::vector<tp::Entry> entries = {
        {"[Content_Types].xml", tp::kContentTypes},
        {"_rels/.rels", tp::Rels({{tp::kStartRel, "/FixedDocumentSequence.fdseq"}})},
        {"FixedDocumentSequence.fdseq",
         tp::Sequence({"Documents/1/FixedDocument.fdoc", "Documents/2/FixedDocument.fdoc"})},
        {"_rels/FixedDocumentSequence.fdseq.rels",
         tp::Rels({{tp::kTicketRel, "Metadata/Job_PT.xml"}})},
        {"Metadata/Job_PT.xml", OrientationTicket("Portrait")},
        {"Documents/2/_rels/FixedDocument.fdoc.rels",
         tp::Rels({{tp::kTicketRel, "Metadata/Document_PT.xml"}})},
        {"Documents/2/Metadata/Document_PT.xml", OrientationTicket("Landscape")},
        {"Documents/1/Metadata/Page2_PT.xml", OrientationTicket("Landscape")},
        {"Documents/2/Metadata/Page1_PT.xml", OrientationTicket("Portrait")},
    };
    for (int document = 1; document <= 2; ++document) {
        const std::string folder = "Documents/" + std::to_string(document) + "/";
        std::vector<std::string> pages;
        for (int i = 1; i <= (document == 1 ? first : second); ++i) {
            const std::string page = "Pages/" + std::to_string(i) + ".fpage";
            pages.push_back(page);
            entries.push_back({folder + page, tp::Page()});
            if (i == 3 - document) {
                entries.push_back(
                    {folder + "Pages/_rels/" + std::to_string(i) + ".fpage.rels",
                     tp::Rels(
                         {{tp::kTicketRel, "../Metadata/Page" + std::to_string(i) + "_PT.xml"}})});
            }
        }
        entries.push_back({folder + "FixedDocument.fdoc", tp::Document(pages)});
    }
    static int jobs = 0;
    return tp::WriteZip("hostjob" + std::to_string(++jobs) + ".xps", entries);
}

// A chain of filters registered as built-ins named f0, f1, ... and the job's outcome.
struct HostJob {
    pipelinehost::FilterRegistry registry;
    pipelinehost::PipelineConfig config;
    pipelinehost::JobOptions options;  // input and output are set by Go
    pipelinehost::JobResult result;
    std::string output;

    void Add(pipelinehost::FilterFactory factory) {
        const std::string name = "f" + std::to_string(config.filters.size());
        registry.AddBuiltin(name, std::move(factory));
        pipelinehost::FilterEntry entry;
        entry.name = name;
        entry.builtin = name;
        config.filters.push_back(entry);
    }
    // A filter made with `new Filter(arguments...)` for each job.
    template <class Filter, class... Arguments>
    void AddNew(Arguments... arguments) {
        Add([=](IPrintPipelineFilter** filter) {
            *filter = new Filter(arguments...);
            return S_OK;
        });
    }

    void Go(const std::string& input) {
        static int outputs = 0;
        output = tp::TempPath("hostjob_out" + std::to_string(++outputs) + ".xps");
        options.input = input;
        options.output = output;
        result = pipelinehost::RunJob(config, registry, options);
    }

    bool OutputExists() const { return std::filesystem::exists(output); }
    std::string Error() const { return result.error ? result.error->what() : std::string(); }
};

}  // namespace hostjob
