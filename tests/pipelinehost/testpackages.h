// testpackages.h: builds small XPS packages for tests, well-formed or broken on purpose, with
// libzip (independent of the host's own writer), reads ZIP files back the same way, and finds
// corpus files.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>
#include <zip.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace testpackages {

struct Entry {
    std::string name;
    std::string content;
    bool store = false;
};

// A folder of this build tree private to the calling process: tests of several worktrees and
// several test processes run at once on one machine.
inline std::filesystem::path ProcessTempDir() {
    std::filesystem::path dir =
        std::filesystem::path(FU_BINARY_DIR) / "test-tmp" / ("p" + std::to_string(::getpid()));
    std::filesystem::create_directories(dir);
    return dir;
}

inline std::string TempPath(const std::string& name) {
    return (ProcessTempDir() / name).string();
}

// Removes the process's folder when the test program ends.
class TempDirCleanup : public ::testing::Environment {
public:
    void TearDown() override {
        std::error_code ignored;
        std::filesystem::remove_all(ProcessTempDir(), ignored);
    }
};
inline const bool kTempDirCleanupRegistered =
    (::testing::AddGlobalTestEnvironment(new TempDirCleanup), true);

// Whether neither the output `target` nor a temporary file of its name (".<name>...") is in its
// folder: what a failed job or writer must leave.
inline bool NothingLeftOf(const std::string& target) {
    std::filesystem::path path(target);
    for (const auto& entry : std::filesystem::directory_iterator(path.parent_path())) {
        std::string name = entry.path().filename().string();
        if (name == path.filename().string() ||
            name.rfind("." + path.filename().string(), 0) == 0) {
            return false;
        }
    }
    return true;
}

// Whether Python's zipfile, an independent reader, finds the archive sound with `items` items
// (true when Python is not installed).
inline bool PythonReads(const std::string& path, std::size_t items) {
    if (std::system("python3 -c 'import zipfile' >/dev/null 2>&1") != 0) return true;
    std::string command =
        "python3 -c 'import sys, zipfile; z = zipfile.ZipFile(sys.argv[1]); "
        "sys.exit(z.testzip() is not None or len(z.infolist()) != int(sys.argv[2]))' '" +
        path + "' " + std::to_string(items);
    return std::system(command.c_str()) == 0;
}

// Writes the entries, in order, as a ZIP file; returns its path.
inline std::string WriteZip(const std::string& fileName, const std::vector<Entry>& entries) {
    std::string path = TempPath(fileName);
    std::filesystem::remove(path);
    int error = 0;
    zip_t* archive = zip_open(path.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &error);
    if (archive == nullptr) return {};
    for (const Entry& entry : entries) {
        zip_source_t* source =
            zip_source_buffer(archive, entry.content.data(), entry.content.size(), 0);
        zip_int64_t index = zip_file_add(archive, entry.name.c_str(), source, ZIP_FL_ENC_UTF_8);
        zip_set_file_compression(archive, static_cast<zip_uint64_t>(index),
                                 entry.store ? ZIP_CM_STORE : ZIP_CM_DEFLATE, 0);
    }
    zip_close(archive);
    return path;
}

inline const char* kContentTypes =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?><Types "
    "xmlns=\"http://schemas.openxmlformats.org/package/2006/content-types\">"
    "<Default Extension=\"rels\" "
    "ContentType=\"application/vnd.openxmlformats-package.relationships+xml\"/>"
    "<Default Extension=\"fdseq\" "
    "ContentType=\"application/vnd.ms-package.xps-fixeddocumentsequence+xml\"/>"
    "<Default Extension=\"fdoc\" ContentType=\"application/vnd.ms-package.xps-fixeddocument+xml\"/>"
    "<Default Extension=\"fpage\" ContentType=\"application/vnd.ms-package.xps-fixedpage+xml\"/>"
    "<Default Extension=\"xml\" ContentType=\"application/vnd.ms-printing.printticket+xml\"/>"
    "<Default Extension=\"ttf\" ContentType=\"application/vnd.ms-opentype\"/>"
    "<Default Extension=\"png\" ContentType=\"image/png\"/></Types>";

inline std::string Rels(const std::vector<std::pair<std::string, std::string>>& typeAndTarget) {
    std::string xml =
        "<Relationships xmlns=\"http://schemas.openxmlformats.org/package/2006/relationships\">";
    int id = 0;
    for (const auto& [type, target] : typeAndTarget) {
        xml += "<Relationship Id=\"R" + std::to_string(id++) + "\" Type=\"" + type +
               "\" Target=\"" + target + "\"/>";
    }
    return xml + "</Relationships>";
}

inline const std::string kStartRel = "http://schemas.microsoft.com/xps/2005/06/fixedrepresentation";
inline const std::string kTicketRel = "http://schemas.microsoft.com/xps/2005/06/printticket";
inline const std::string kResourceRel =
    "http://schemas.microsoft.com/xps/2005/06/required-resource";

inline std::string Sequence(const std::vector<std::string>& documents) {
    std::string xml = "<FixedDocumentSequence xmlns=\"http://schemas.microsoft.com/xps/2005/06\">";
    for (const auto& d : documents) xml += "<DocumentReference Source=\"" + d + "\"/>";
    return xml + "</FixedDocumentSequence>";
}

inline std::string Document(const std::vector<std::string>& pages) {
    std::string xml = "<FixedDocument xmlns=\"http://schemas.microsoft.com/xps/2005/06\">";
    for (const auto& p : pages) xml += "<PageContent Source=\"" + p + "\"/>";
    return xml + "</FixedDocument>";
}

inline std::string Page(const std::string& body = "") {
    return "<FixedPage xmlns=\"http://schemas.microsoft.com/xps/2005/06\" Width=\"100\" "
           "Height=\"100\" xml:lang=\"en\">" +
           body + "</FixedPage>";
}

inline std::string Ticket(const std::string& tag) {
    return "<psf:PrintTicket "
           "xmlns:psf=\"http://schemas.microsoft.com/windows/2003/08/printing/"
           "printschemaframework\" "
           "version=\"1\"><!--" +
           tag + "--></psf:PrintTicket>";
}

// A valid job: one document of `pages` pages, tickets at all three levels (pages share one).
inline std::vector<Entry> SmallJob(int pages) {
    std::vector<Entry> entries = {
        {"[Content_Types].xml", kContentTypes},
        {"_rels/.rels", Rels({{kStartRel, "/FixedDocumentSequence.fdseq"}})},
        {"FixedDocumentSequence.fdseq", Sequence({"Documents/1/FixedDocument.fdoc"})},
        {"_rels/FixedDocumentSequence.fdseq.rels", Rels({{kTicketRel, "Metadata/Job_PT.xml"}})},
        {"Metadata/Job_PT.xml", Ticket("job")},
        {"Documents/1/_rels/FixedDocument.fdoc.rels",
         Rels({{kTicketRel, "../../Metadata/Doc_PT.xml"}})},
        {"Metadata/Doc_PT.xml", Ticket("document")},
        {"Documents/1/Metadata/Page_PT.xml", Ticket("page")},
    };
    std::vector<std::string> names;
    for (int i = 1; i <= pages; ++i) {
        std::string page = "Pages/" + std::to_string(i) + ".fpage";
        names.push_back(page);
        entries.push_back({"Documents/1/" + page, Page()});
        entries.push_back({"Documents/1/Pages/_rels/" + std::to_string(i) + ".fpage.rels",
                           Rels({{kTicketRel, "../Metadata/Page_PT.xml"}})});
    }
    entries.push_back({"Documents/1/FixedDocument.fdoc", Document(names)});
    return entries;
}

struct Item {
    std::string name;
    std::string content;
    int method = 0;
};

// Every item of a ZIP in central-directory order, read through libzip (which checks each
// item's CRC-32 and size while reading). Fails the test on a damaged archive.
inline std::vector<Item> ReadZip(const std::string& path) {
    std::vector<Item> items;
    int error = 0;
    zip_t* archive = zip_open(path.c_str(), ZIP_RDONLY | ZIP_CHECKCONS, &error);
    EXPECT_NE(archive, nullptr) << path << " is not a consistent ZIP (" << error << ")";
    if (archive == nullptr) return items;
    zip_int64_t count = zip_get_num_entries(archive, 0);
    for (zip_int64_t i = 0; i < count; ++i) {
        zip_stat_t stat;
        zip_stat_index(archive, static_cast<zip_uint64_t>(i), 0, &stat);
        Item item{stat.name, {}, stat.comp_method};
        zip_file_t* file = zip_fopen_index(archive, static_cast<zip_uint64_t>(i), 0);
        EXPECT_NE(file, nullptr) << stat.name;
        if (file == nullptr) continue;
        char buffer[1 << 15];
        zip_int64_t got = 0;
        while ((got = zip_fread(file, buffer, sizeof buffer)) > 0) {
            item.content.append(buffer, static_cast<std::size_t>(got));
        }
        EXPECT_EQ(got, 0) << stat.name << ": " << zip_file_strerror(file);
        zip_fclose(file);
        items.push_back(std::move(item));
    }
    zip_close(archive);
    return items;
}

inline std::string CorpusFile(const std::string& name) {
    return std::string(FU_CORPUS_DIR) + "/xps/" + name;
}

// The file names of a corpus folder ("xps", "tickets", ...), sorted.
inline std::vector<std::string> CorpusNames(const std::string& folder = "xps") {
    std::vector<std::string> names;
    for (const auto& entry :
         std::filesystem::directory_iterator(std::string(FU_CORPUS_DIR) + "/" + folder)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

// A test name made of a file name: letters and digits kept, everything else '_'.
inline std::string TestNameOf(const std::string& text) {
    std::string name;
    for (char c : text) name += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
    return name;
}

}  // namespace testpackages
