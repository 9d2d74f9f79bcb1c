// Tests of `xpsfilter printer forms` and `xpsfilter ticket set-media`: the sample printer's
// filtered forms with their option names, tickets rewritten from a form, the custom-size
// fallback, and a clear message with its own exit code for each kind of bad input (printer
// registry, printer configuration, sizes, tickets, a missing core library).
#include <gtest/gtest.h>

#include <algorithm>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "toolrunner.h"

namespace {

namespace fs = std::filesystem;

// Exit codes of the commands (docs/xpsfilter.md).
constexpr int kOk = 0;
constexpr int kUsage = 2;
constexpr int kInputMissing = 3;
constexpr int kBadTicket = 7;
constexpr int kPrinterConfig = 11;
constexpr int kUnknownPrinter = 12;
constexpr int kBadSize = 13;
constexpr int kNoMatchingForm = 14;
constexpr int kCoreLibrary = 15;

const char* const kSample = "Zorun Sample Printer";

using Outcome = toolrunner::SplitOutcome;
using toolrunner::Quote;
using toolrunner::ReadFile;

std::size_t Occurrences(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

class MediaSizeCommandTest : public ::testing::Test {
protected:
    void SetUp() override {
        const testing::TestInfo* test = testing::UnitTest::GetInstance()->current_test_info();
        m_dir = fs::path(FU_BINARY_DIR) / "testscratch" /
                ("mediasize-" + std::to_string(getpid()) + "-" + test->name());
        fs::remove_all(m_dir);
        fs::create_directories(m_dir);
        m_environment["FU_PRINTER_REGISTRY"] = std::string(FU_SOURCE_DIR) + "/samples/printers";
        m_environment["FU_DEBUG_SINK"] = "none";
    }
    void TearDown() override {
        std::error_code ignored;
        fs::remove_all(m_dir, ignored);
    }

    // Runs xpsfilter with the test's environment; stdout and stderr apart.
    Outcome Run(const std::vector<std::string>& args, const std::string& tool = "") {
        std::string command;
        for (const auto& [name, value] : m_environment) command += name + "=" + Quote(value) + " ";
        command += Quote(tool.empty() ? std::string(FU_BINARY_DIR) + "/bin/xpsfilter" : tool);
        for (const std::string& arg : args) command += " " + Quote(arg);
        return toolrunner::ShellSplit(command, m_dir / "stderr.txt");
    }

    // A registry of the test's own with one printer of the given printer.ini.
    void UsePrinter(const std::string& name, const std::string& ini) {
        const fs::path registry = m_dir / "registry";
        fs::create_directories(registry / name);
        std::ofstream(registry / name / "printer.ini", std::ios::binary) << ini;
        m_environment["FU_PRINTER_REGISTRY"] = registry.string();
    }

    fs::path WriteTicket(const std::string& body, const std::string& extra = "") {
        const fs::path path = m_dir / "ticket.xml";
        std::ofstream(path, std::ios::binary)
            << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
               "<psf:PrintTicket "
               "xmlns:psf=\"http://schemas.microsoft.com/windows/2003/08/printing/"
               "printschemaframework\" "
               "xmlns:psk=\"http://schemas.microsoft.com/windows/2003/08/printing/"
               "printschemakeywords\" "
               "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
               "xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\" version=\"1\""
            << extra << ">" << body << "</psf:PrintTicket>\n";
        return path;
    }

    fs::path LetterTicket() {
        return WriteTicket(
            "<psf:Feature name=\"psk:PageMediaSize\"><psf:Option "
            "name=\"psk:NorthAmericaLetter\"/></psf:Feature><psf:Feature "
            "name=\"psk:PageOrientation\"><psf:Option name=\"psk:Landscape\"/></psf:Feature>");
    }

    Outcome SetMedia(const std::string& size, const std::vector<std::string>& more = {}) {
        std::vector<std::string> args = {"ticket",    "set-media", LetterTicket().string(),
                                         "--printer", kSample,     "--size=" + size};
        args.insert(args.end(), more.begin(), more.end());
        return Run(args);
    }

    fs::path m_dir;
    std::map<std::string, std::string> m_environment;
};

// --- printer forms ---

TEST_F(MediaSizeCommandTest, FormsListsTheFilteredFormsWithTheirOptions) {
    const Outcome run = Run({"printer", "forms", kSample});
    ASSERT_EQ(run.exitCode, kOk) << run.err;
    std::istringstream lines(run.out);
    std::vector<std::string> rows;
    for (std::string line; std::getline(lines, line);) rows.push_back(line);
    ASSERT_EQ(rows.size(), 10u) << run.out;  // a header and nine forms
    EXPECT_NE(rows[1].find("25001 predefined"), std::string::npos);
    EXPECT_NE(rows[1].find("2100x2970"), std::string::npos);
    EXPECT_NE(rows[1].find("210000x297000"), std::string::npos);
    EXPECT_NE(rows[1].find("5011"), std::string::npos);
    EXPECT_NE(rows[1].find("psk  ISOA4"), std::string::npos);
    EXPECT_NE(rows[4].find("CustomMediaSize"), std::string::npos);
    EXPECT_NE(rows[8].find("zk   UserForm_258_1000x1500"), std::string::npos);
    EXPECT_NE(rows[9].find("zk   DriverCustomSize_257_2100x9000"), std::string::npos);
    // Forms known to the dictionary (B5 (JIS), Ledger) are not offered to tickets.
    EXPECT_EQ(run.out.find("JISB5"), std::string::npos);
    EXPECT_EQ(run.out.find("Ledger"), std::string::npos);

    const Outcome postScript = Run({"printer", "forms", "--postscript", kSample});
    ASSERT_EQ(postScript.exitCode, kOk);
    EXPECT_NE(postScript.out.find("PSCustomMediaSize"), std::string::npos);
}

// The JSON form lists the same forms, in the same order, with sizes in micrometres.
TEST_F(MediaSizeCommandTest, FormsAsJsonMatchTheTable) {
    const Outcome json = Run({"printer", "forms", "--json", kSample});
    ASSERT_EQ(json.exitCode, kOk) << json.err;
    const fs::path file = m_dir / "forms.json";
    std::ofstream(file) << json.out;
    const toolrunner::Outcome listed = toolrunner::Shell(
        "python3 -c " +
        toolrunner::Quote("import json, sys\n"
                          "for f in json.load(open(sys.argv[1]))['forms']:\n"
                          "    print(f['kind'], f['width'], f['height'], f['namespace'], "
                          "f['option'])") +
        " " + toolrunner::Quote(file.string()));
    ASSERT_EQ(listed.exitCode, 0) << listed.output;
    EXPECT_EQ(listed.output.find("25001 210000 297000 psk ISOA4\n"), 0u) << listed.output;
    EXPECT_NE(listed.output.find("25005 100000 150000 zk UserForm_258_1000x1500\n"),
              std::string::npos)
        << listed.output;
    EXPECT_EQ(std::count(listed.output.begin(), listed.output.end(), '\n'), 9) << listed.output;
}

TEST_F(MediaSizeCommandTest, FormsThatCannotBeNamedAreShownAsSuch) {
    UsePrinter("P",
               "[Forms]\nA=25001,9,2100,2970,5011\nOdd=25001,9,2101,2970,5011\n"
               "Entry=25008,300,2100,2970,5002\n");
    const Outcome run = Run({"printer", "forms", "P"});
    ASSERT_EQ(run.exitCode, kOk) << run.err;
    EXPECT_NE(run.out.find("(not in the dictionary)"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("(cannot be named: kind 25008, paper id 300 (0x80004005))"),
              std::string::npos)
        << run.out;
}

TEST_F(MediaSizeCommandTest, AnUnknownPrinterHasItsOwnExitCode) {
    const Outcome run = Run({"printer", "forms", "No Such Printer"});
    EXPECT_EQ(run.exitCode, kUnknownPrinter);
    EXPECT_NE(run.err.find("has no printer \"No Such Printer\""), std::string::npos) << run.err;
    EXPECT_TRUE(run.out.empty());
    EXPECT_EQ(Run({"printer", "forms", "../printers"}).exitCode, kUnknownPrinter);
}

TEST_F(MediaSizeCommandTest, AMissingOrDamagedConfigurationIsReported) {
    m_environment["FU_PRINTER_REGISTRY"] = (m_dir / "nowhere").string();
    Outcome run = Run({"printer", "forms", kSample});
    EXPECT_EQ(run.exitCode, kPrinterConfig);
    EXPECT_NE(run.err.find("does not exist"), std::string::npos) << run.err;

    fs::create_directories(m_dir / "registry" / "Empty");
    m_environment["FU_PRINTER_REGISTRY"] = (m_dir / "registry").string();
    run = Run({"printer", "forms", "Empty"});
    EXPECT_EQ(run.exitCode, kPrinterConfig);
    EXPECT_NE(run.err.find("printer.ini is missing"), std::string::npos) << run.err;

    std::string binary(
        "\x7f"
        "ELF\x02\x01\x01");
    binary += std::string(3, '\0') + "[Forms]\nA4=25001,9,2100,2970,5011\n";
    UsePrinter("Binary", binary);
    run = Run({"printer", "forms", "Binary"});
    EXPECT_EQ(run.exitCode, kPrinterConfig);
    EXPECT_NE(run.err.find("is not a text file"), std::string::npos) << run.err;

    UsePrinter("Bad",
               "[Forms]\nA4=25001,9,2100,2970,5011\nBroken=25001,9,0,2970,5011\n"
               "Short=25005,258\n");
    run = Run({"printer", "forms", "Bad"});
    EXPECT_EQ(run.exitCode, kPrinterConfig);
    EXPECT_NE(run.err.find("Broken=25001,9,0,2970,5011"), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("Short=25005,258"), std::string::npos) << run.err;
    EXPECT_TRUE(run.out.empty());

    UsePrinter("NoForms", "[Printer]\nDriverName=X\n[Forms]\nOther=25002,13,1820,2570,5061\n");
    run = Run({"printer", "forms", "NoForms"});
    EXPECT_EQ(run.exitCode, kPrinterConfig);
    EXPECT_NE(run.err.find("lists no form a PrintTicket can use"), std::string::npos) << run.err;
}

// --- ticket set-media ---

TEST_F(MediaSizeCommandTest, SetMediaWritesTheMatchedFormsOption) {
    const Outcome run = SetMedia("210x297mm");
    ASSERT_EQ(run.exitCode, kOk) << run.err;
    EXPECT_EQ(run.out.rfind("<?xml", 0), 0u) << run.out;
    EXPECT_EQ(Occurrences(run.out, "\"psk:PageMediaSize\""), 1u) << run.out;
    EXPECT_NE(run.out.find("<psf:Option name=\"psk:ISOA4\">"), std::string::npos) << run.out;
    EXPECT_EQ(run.out.find("NorthAmericaLetter"), std::string::npos);
    EXPECT_NE(run.out.find(">210000<"), std::string::npos);
    EXPECT_NE(run.out.find(">297000<"), std::string::npos);
    EXPECT_NE(run.out.find("psk:Landscape"), std::string::npos) << "other features are kept";
    EXPECT_NE(run.err.find("psk:ISOA4"), std::string::npos) << run.err;
}

TEST_F(MediaSizeCommandTest, SetMediaSizesTakeMicronsOrAUnit) {
    for (const char* size : {"210000x297000", "210000X297000um", "210mmx297mm", "210 x 297 MM",
                             "210.04x297.09mm", "8.2677x11.6929in"}) {
        const Outcome run = SetMedia(size);
        EXPECT_EQ(run.exitCode, kOk) << size << ": " << run.err;
        EXPECT_NE(run.out.find("psk:ISOA4"), std::string::npos) << size;
    }
    const Outcome letter = SetMedia("8.5x11in");
    ASSERT_EQ(letter.exitCode, kOk) << letter.err;
    EXPECT_NE(letter.out.find("psk:NorthAmericaLetter"), std::string::npos);
    EXPECT_NE(letter.out.find(">215900<"), std::string::npos);
}

TEST_F(MediaSizeCommandTest, SetMediaDeclaresThePrivateNamespaceForAUserForm) {
    const Outcome run = SetMedia("100x150mm");
    ASSERT_EQ(run.exitCode, kOk) << run.err;
    EXPECT_NE(run.out.find("<psf:Option name=\"zk:UserForm_258_1000x1500\">"), std::string::npos)
        << run.out;
    EXPECT_NE(run.out.find("xmlns:zk=\"http://schemas.zorun.example/"), std::string::npos)
        << run.out;
}

// A ticket that does not declare the namespaces the new PageMediaSize is written in gets them on
// its root; its own prefixes are kept, and a prefix in use for something else is not taken.
TEST_F(MediaSizeCommandTest, SetMediaDeclaresTheNamespacesItWritesIn) {
    const fs::path bare = m_dir / "bare.xml";
    std::ofstream(bare) << "<psf:PrintTicket xmlns:psf=\"http://schemas.microsoft.com/windows/2003/"
                           "08/printing/printschemaframework\" xmlns:psk=\"urn:not-keywords\" "
                           "version=\"1\"/>";
    Outcome run =
        Run({"ticket", "set-media", bare.string(), "--printer", kSample, "--size", "210x297mm"});
    ASSERT_EQ(run.exitCode, kOk) << run.err;
    EXPECT_NE(run.out.find("xmlns:psk1=\"http://schemas.microsoft.com/windows/2003/08/printing/"
                           "printschemakeywords\""),
              std::string::npos)
        << run.out;
    EXPECT_NE(run.out.find("xmlns:psk=\"urn:not-keywords\""), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("<psf:Feature name=\"psk1:PageMediaSize\"><psf:Option "
                           "name=\"psk1:ISOA4\">"),
              std::string::npos)
        << run.out;
    EXPECT_NE(run.out.find("xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\""), std::string::npos);
    EXPECT_NE(run.out.find("<psf:Value xsi:type=\"xsd:integer\">210000<"), std::string::npos)
        << run.out;
    EXPECT_EQ(run.out.find("xmlns:zk="), std::string::npos) << "no private option, no declaration";
    EXPECT_NE(run.err.find("psk1:ISOA4"), std::string::npos) << run.err;

    const fs::path other = m_dir / "other.xml";
    std::ofstream(other) << "<p:PrintTicket xmlns:p=\"http://schemas.microsoft.com/windows/2003/08/"
                            "printing/printschemaframework\" xmlns:k=\"http://schemas.microsoft."
                            "com/windows/2003/08/printing/printschemakeywords\" version=\"1\"/>";
    run = Run({"ticket", "set-media", other.string(), "--printer", kSample, "--size", "100x150mm"});
    ASSERT_EQ(run.exitCode, kOk) << run.err;
    EXPECT_NE(run.out.find("<p:Feature name=\"k:PageMediaSize\"><p:Option "
                           "name=\"zk:UserForm_258_1000x1500\"><p:ScoredProperty "
                           "name=\"k:MediaSizeWidth\">"),
              std::string::npos)
        << run.out;
}

TEST_F(MediaSizeCommandTest, SetMediaFallsBackToTheCustomSize) {
    Outcome run = SetMedia("123x456mm");
    ASSERT_EQ(run.exitCode, kOk) << run.err;
    EXPECT_NE(run.out.find("psk:CustomMediaSize"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("<psf:ParameterRef name=\"psk:PageMediaSizeMediaSizeWidth\"/>"),
              std::string::npos);
    EXPECT_NE(run.out.find(">123000<"), std::string::npos);
    EXPECT_NE(run.out.find(">456000<"), std::string::npos);
    EXPECT_NE(run.err.find("custom size"), std::string::npos) << run.err;

    run = SetMedia("123x456mm", {"--postscript"});
    ASSERT_EQ(run.exitCode, kOk) << run.err;
    EXPECT_NE(run.out.find("psk:PSCustomMediaSize"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("<psf:ParameterInit name=\"psk:PageMediaSizePSOrientation\"><psf:Value "
                           "xsi:type=\"xsd:integer\">1<"),
              std::string::npos)
        << run.out;
    EXPECT_EQ(Occurrences(run.out, "Offset\"><psf:Value xsi:type=\"xsd:integer\">0<"), 2u)
        << run.out;
}

TEST_F(MediaSizeCommandTest, SetMediaWritesTheOutputFileOnlyOnSuccess) {
    const fs::path output = m_dir / "out.xml";
    Outcome run = SetMedia("210x297mm", {"-o", output.string()});
    ASSERT_EQ(run.exitCode, kOk) << run.err;
    EXPECT_TRUE(run.out.empty());
    EXPECT_NE(ReadFile(output).find("psk:ISOA4"), std::string::npos);

    fs::remove(output);
    run = SetMedia("0x297mm", {"-o", output.string()});
    EXPECT_EQ(run.exitCode, kBadSize);
    EXPECT_FALSE(fs::exists(output));
}

TEST_F(MediaSizeCommandTest, SizesOfZeroOrBelowOrTooLargeAreRefused) {
    for (const char* size : {"0x297mm", "210x0", "-210x297mm", "210x-1in", "0.0004x297mm",
                             "3000000000x1", "100000x1in"}) {
        const Outcome run = SetMedia(size);
        EXPECT_EQ(run.exitCode, kBadSize) << size << ": " << run.err;
        EXPECT_FALSE(run.err.empty());
        EXPECT_TRUE(run.out.empty()) << size;
    }
    for (const char* size : {"210", "210x297cm", "axb", "210x297x3", "x297", "210x", "nanxinf"}) {
        const Outcome run = SetMedia(size);
        EXPECT_EQ(run.exitCode, kUsage) << size << ": " << run.err;
        EXPECT_NE(run.err.find("expected WIDTHxHEIGHT"), std::string::npos) << size;
    }
}

TEST_F(MediaSizeCommandTest, NoFormOfTheSizeAndNoCustomEntry) {
    UsePrinter("P", "[Forms]\nA4=25001,9,2100,2970,5011\n");
    const Outcome run = Run(
        {"ticket", "set-media", LetterTicket().string(), "--printer", "P", "--size", "100x100mm"});
    EXPECT_EQ(run.exitCode, kNoMatchingForm);
    EXPECT_NE(run.err.find("has no form of 1000x1000 tenths of a millimetre"), std::string::npos)
        << run.err;
    EXPECT_TRUE(run.out.empty());
}

TEST_F(MediaSizeCommandTest, SetMediaReportsBadTicketsAndPrinters) {
    Outcome run = Run({"ticket", "set-media", (m_dir / "missing.xml").string(), "--printer",
                       kSample, "--size", "210x297mm"});
    EXPECT_EQ(run.exitCode, kInputMissing) << run.err;

    const fs::path broken = m_dir / "broken.xml";
    std::ofstream(broken) << "<psf:PrintTicket";
    run =
        Run({"ticket", "set-media", broken.string(), "--printer", kSample, "--size", "210x297mm"});
    EXPECT_EQ(run.exitCode, kBadTicket) << run.err;
    EXPECT_NE(run.err.find("not well-formed"), std::string::npos) << run.err;

    const fs::path other = m_dir / "other.xml";
    std::ofstream(other) << "<Ticket/>";
    run = Run({"ticket", "set-media", other.string(), "--printer", kSample, "--size", "210x297mm"});
    EXPECT_EQ(run.exitCode, kBadTicket) << run.err;
    EXPECT_NE(run.err.find("is not a PrintTicket"), std::string::npos) << run.err;

    run = Run({"ticket", "set-media", LetterTicket().string(), "--printer", "Nobody", "--size",
               "210x297mm"});
    EXPECT_EQ(run.exitCode, kUnknownPrinter) << run.err;
    EXPECT_TRUE(run.out.empty());

    EXPECT_EQ(Run({"ticket", "set-media", LetterTicket().string(), "--size", "1x1"}).exitCode,
              kUsage);
}

// The core library is opened on first use beside the filter library or in the printer driver
// directory's "3" folder: a filter library copied where neither has it cannot load it.
TEST_F(MediaSizeCommandTest, AMissingCoreLibraryIsAClearError) {
    const fs::path lib = m_dir / "lib";
    fs::create_directories(lib);
    fs::copy_file(fs::path(FU_BINARY_DIR) / "lib" / "libfilterutilities.so.0",
                  lib / "libfilterutilities.so.0");
    m_environment["LD_LIBRARY_PATH"] = lib.string();
    m_environment["FU_PRINTER_DRIVER_DIRECTORY"] = (m_dir / "drivers").string();

    Outcome run = Run({"printer", "forms", kSample});
    EXPECT_EQ(run.exitCode, kCoreLibrary) << run.out << run.err;
    EXPECT_NE(run.err.find("libzoruncore.so.0"), std::string::npos) << run.err;
    EXPECT_NE(run.err.find((m_dir / "drivers").string() + "/3"), std::string::npos) << run.err;
    EXPECT_TRUE(run.out.empty());

    run = SetMedia("210x297mm");
    EXPECT_EQ(run.exitCode, kCoreLibrary) << run.err;
    EXPECT_TRUE(run.out.empty());

    // The driver directory's "3" folder is the second place looked in.
    fs::create_directories(m_dir / "drivers" / "3");
    fs::copy_file(fs::path(FU_BINARY_DIR) / "lib" / "libzoruncore.so.0",
                  m_dir / "drivers" / "3" / "libzoruncore.so.0");
    run = Run({"printer", "forms", kSample});
    EXPECT_EQ(run.exitCode, kOk) << run.err;
    EXPECT_NE(run.out.find("ISOA4"), std::string::npos);
}

}  // namespace
