// Tests of `xpsfilter printer forms` and `xpsfilter ticket set-media`: the sample printer's
// filtered forms with their option names, tickets rewritten from a form, the custom-size
// fallback, and a clear message with its own exit code for each kind of bad input (printer
// registry, printer configuration, sizes, tickets, a missing core library).
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
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

const std::string kTicketHead =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<psf:PrintTicket "
    "xmlns:psf=\"http://schemas.microsoft.com/windows/2003/08/printing/printschemaframework\" "
    "xmlns:psk=\"http://schemas.microsoft.com/windows/2003/08/printing/printschemakeywords\" "
    "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
    "xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\" version=\"1\">";

class MediaSizeCommandTest : public ::testing::Test {
protected:
    void SetUp() override {
        m_dir = toolrunner::WorkDir(std::string("mediasize_") +
                                    testing::UnitTest::GetInstance()->current_test_info()->name());
        m_environment["FU_PRINTER_REGISTRY"] = std::string(FU_SOURCE_DIR) + "/samples/printers";
        m_environment["FU_DEBUG_SINK"] = "none";
        m_letter = Write("letter.xml",
                         kTicketHead +
                             "<psf:Feature name=\"psk:PageMediaSize\"><psf:Option "
                             "name=\"psk:NorthAmericaLetter\"/></psf:Feature><psf:Feature "
                             "name=\"psk:PageOrientation\"><psf:Option name=\"psk:Landscape\"/>"
                             "</psf:Feature></psf:PrintTicket>\n");
    }

    // Runs xpsfilter with the test's environment; stdout and stderr apart.
    Outcome Run(const std::vector<std::string>& args) {
        std::string command;
        for (const auto& [name, value] : m_environment) command += name + "=" + Quote(value) + " ";
        command += Quote(toolrunner::Tool());
        for (const std::string& arg : args) command += " " + Quote(arg);
        return toolrunner::ShellSplit(command, m_dir / "stderr.txt");
    }

    std::string Write(const std::string& name, const std::string& content) {
        const fs::path path = m_dir / name;
        fs::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary) << content;
        return path.string();
    }

    // A printer of the given printer.ini in the test's own registry (no file without `ini`).
    void AddPrinter(const std::string& name, const std::optional<std::string>& ini) {
        fs::create_directories(m_dir / "registry" / name);
        if (ini) Write("registry/" + name + "/printer.ini", *ini);
    }

    Outcome SetMedia(const std::string& size, const std::vector<std::string>& more = {}) {
        std::vector<std::string> args = {"ticket", "set-media", m_letter, "--printer", kSample,
                                         "--size=" + size};
        args.insert(args.end(), more.begin(), more.end());
        return Run(args);
    }

    fs::path m_dir;
    std::map<std::string, std::string> m_environment;
    std::string m_letter;
};

// --- printer forms ---

TEST_F(MediaSizeCommandTest, FormsListsTheFilteredFormsWithTheirOptions) {
    const Outcome run = Run({"printer", "forms", kSample});
    ASSERT_EQ(run.exitCode, kOk) << run.err;
    std::istringstream lines(run.out);
    std::vector<std::string> rows;
    for (std::string line; std::getline(lines, line);) rows.push_back(line);
    ASSERT_EQ(rows.size(), 10u) << run.out;  // a header and nine forms
    for (const auto& [row, text] : std::vector<std::pair<int, const char*>>{
             {1, "25001 predefined"}, {1, "2100x2970"}, {1, "210000x297000"}, {1, "5011"},
             {1, "psk  ISOA4"}, {4, "CustomMediaSize"}, {8, "zk   UserForm_258_1000x1500"},
             {9, "zk   DriverCustomSize_257_2100x9000"}}) {
        EXPECT_NE(rows[row].find(text), std::string::npos) << row << ": " << text;
    }
    // Forms known to the dictionary (B5 (JIS), Ledger) are not offered to tickets.
    EXPECT_EQ(run.out.find("JISB5"), std::string::npos);
    EXPECT_EQ(run.out.find("Ledger"), std::string::npos);

    const Outcome postScript = Run({"printer", "forms", "--postscript", kSample});
    ASSERT_EQ(postScript.exitCode, kOk);
    EXPECT_NE(postScript.out.find("PSCustomMediaSize"), std::string::npos);

    // The JSON form lists the same forms, in the same order, with sizes in micrometres.
    const Outcome json = Run({"printer", "forms", "--json", kSample});
    ASSERT_EQ(json.exitCode, kOk) << json.err;
    const toolrunner::Outcome listed = toolrunner::Shell(
        "python3 -c " +
        Quote("import json, sys\n"
              "for f in json.load(open(sys.argv[1]))['forms']:\n"
              "    print(f['kind'], f['width'], f['height'], f['namespace'], f['option'])") +
        " " + Quote(Write("forms.json", json.out)));
    ASSERT_EQ(listed.exitCode, 0) << listed.output;
    EXPECT_EQ(listed.output.find("25001 210000 297000 psk ISOA4\n"), 0u) << listed.output;
    EXPECT_NE(listed.output.find("25005 100000 150000 zk UserForm_258_1000x1500\n"),
              std::string::npos)
        << listed.output;
    EXPECT_EQ(std::count(listed.output.begin(), listed.output.end(), '\n'), 9) << listed.output;

    // Forms that cannot be named are shown as such.
    AddPrinter("Odd", "[Forms]\nA=25001,9,2100,2970,5011\nOdd=25001,9,2101,2970,5011\n"
                      "Entry=25008,300,2100,2970,5002\n");
    m_environment["FU_PRINTER_REGISTRY"] = (m_dir / "registry").string();
    const Outcome odd = Run({"printer", "forms", "Odd"});
    ASSERT_EQ(odd.exitCode, kOk) << odd.err;
    EXPECT_NE(odd.out.find("(not in the dictionary)"), std::string::npos) << odd.out;
    EXPECT_NE(odd.out.find("(cannot be named: kind 25008, paper id 300 (0x80004005))"),
              std::string::npos)
        << odd.out;
}

// --- ticket set-media ---

// Each successful rewrite: an XML ticket with exactly one PageMediaSize, whose option and sizes
// are those of the form of the size, in namespaces the ticket declares.
TEST_F(MediaSizeCommandTest, SetMediaWritesTheMatchedFormsOption) {
    const std::string bare = Write(
        "bare.xml",
        "<psf:PrintTicket xmlns:psf=\"http://schemas.microsoft.com/windows/2003/08/printing/"
        "printschemaframework\" xmlns:psk=\"urn:not-keywords\" version=\"1\"/>");
    const std::string other = Write(
        "other.xml",
        "<p:PrintTicket xmlns:p=\"http://schemas.microsoft.com/windows/2003/08/printing/"
        "printschemaframework\" xmlns:k=\"http://schemas.microsoft.com/windows/2003/08/printing/"
        "printschemakeywords\" version=\"1\"/>");
    const struct {
        const char* name;
        std::string ticket;
        std::string size;
        std::vector<std::string> more;
        std::vector<std::string> contains;
        std::vector<std::string> absent;
        std::string message;  // on standard error
    } rows[] = {
        {"a4", m_letter, "210x297mm", {},
         {"<psf:Option name=\"psk:ISOA4\">", ">210000<", ">297000<", "psk:Landscape"},
         {"NorthAmericaLetter"}, "psk:ISOA4"},
        {"microns", m_letter, "210000x297000", {}, {"psk:ISOA4"}, {}, ""},
        {"micron_unit", m_letter, "210000X297000um", {}, {"psk:ISOA4"}, {}, ""},
        {"mm_each", m_letter, "210mmx297mm", {}, {"psk:ISOA4"}, {}, ""},
        {"spaced", m_letter, "210 x 297 MM", {}, {"psk:ISOA4"}, {}, ""},
        {"rounded", m_letter, "210.04x297.09mm", {}, {"psk:ISOA4"}, {}, ""},
        {"inches", m_letter, "8.2677x11.6929in", {}, {"psk:ISOA4"}, {}, ""},
        {"letter", m_letter, "8.5x11in", {}, {"psk:NorthAmericaLetter", ">215900<"}, {}, ""},
        // A user form's option is in the private namespace, which gets declared.
        {"user_form", m_letter, "100x150mm", {},
         {"<psf:Option name=\"zk:UserForm_258_1000x1500\">",
          "xmlns:zk=\"http://schemas.zorun.example/"},
         {}, ""},
        // No form of the size: the custom size.
        {"custom", m_letter, "123x456mm", {},
         {"psk:CustomMediaSize", "<psf:ParameterRef name=\"psk:PageMediaSizeMediaSizeWidth\"/>",
          ">123000<", ">456000<"},
         {}, "custom size"},
        {"postscript_custom", m_letter, "123x456mm", {"--postscript"},
         {"psk:PSCustomMediaSize",
          "<psf:ParameterInit name=\"psk:PageMediaSizePSOrientation\"><psf:Value "
          "xsi:type=\"xsd:integer\">1<",
          "PageMediaSizePSWidthOffset\"><psf:Value xsi:type=\"xsd:integer\">0<",
          "PageMediaSizePSHeightOffset\"><psf:Value xsi:type=\"xsd:integer\">0<"},
         {}, ""},
        // A ticket that does not declare the namespaces the new PageMediaSize is written in gets
        // them on its root; its own prefixes are kept, and a prefix in use for something else is
        // not taken.
        {"undeclared_keywords", bare, "210x297mm", {},
         {"xmlns:psk1=\"http://schemas.microsoft.com/windows/2003/08/printing/"
          "printschemakeywords\"",
          "xmlns:psk=\"urn:not-keywords\"",
          "<psf:Feature name=\"psk1:PageMediaSize\"><psf:Option name=\"psk1:ISOA4\">",
          "xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\"",
          "<psf:Value xsi:type=\"xsd:integer\">210000<"},
         {"xmlns:zk="}, "psk1:ISOA4"},
        {"own_prefixes", other, "100x150mm", {},
         {"<p:Feature name=\"k:PageMediaSize\"><p:Option name=\"zk:UserForm_258_1000x1500\">"
          "<p:ScoredProperty name=\"k:MediaSizeWidth\">"},
         {}, ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        std::vector<std::string> args = {"ticket",    "set-media", row.ticket,
                                         "--printer", kSample,     "--size=" + row.size};
        args.insert(args.end(), row.more.begin(), row.more.end());
        const Outcome run = Run(args);
        ASSERT_EQ(run.exitCode, kOk) << run.err;
        EXPECT_TRUE(row.ticket != m_letter || run.out.rfind("<?xml", 0) == 0) << run.out;
        EXPECT_EQ(Occurrences(run.out, "PageMediaSize\""), 1u) << run.out;
        for (const std::string& text : row.contains) {
            EXPECT_NE(run.out.find(text), std::string::npos) << text << "\n" << run.out;
        }
        for (const std::string& text : row.absent) {
            EXPECT_EQ(run.out.find(text), std::string::npos) << text << "\n" << run.out;
        }
        EXPECT_NE(run.err.find(row.message), std::string::npos) << run.err;
    }
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

// --- bad input ---

// Every kind of bad input has its exit code, says what is wrong on standard error and writes
// nothing on standard output.
TEST_F(MediaSizeCommandTest, BadInputHasItsOwnExitCodeAndMessage) {
    std::string binary("\x7f" "ELF\x02\x01\x01");
    binary += std::string(3, '\0') + "[Forms]\nA4=25001,9,2100,2970,5011\n";
    AddPrinter("Empty", std::nullopt);
    AddPrinter("Binary", binary);
    AddPrinter("Bad", "[Forms]\nA4=25001,9,2100,2970,5011\nBroken=25001,9,0,2970,5011\n"
                      "Short=25005,258\n");
    AddPrinter("NoForms", "[Printer]\nDriverName=X\n[Forms]\nOther=25002,13,1820,2570,5061\n");
    AddPrinter("A4Only", "[Forms]\nA4=25001,9,2100,2970,5011\n");
    const std::string broken = Write("broken.xml", "<psf:PrintTicket");
    const std::string notTicket = Write("not_ticket.xml", "<Ticket/>");
    const std::string sample = std::string(FU_SOURCE_DIR) + "/samples/printers";
    const std::string own = (m_dir / "registry").string();
    auto setMedia = [&](const std::string& ticket, const std::string& printer,
                        const std::string& size) {
        return std::vector<std::string>{"ticket",  "set-media", ticket,
                                        "--printer", printer, "--size=" + size};
    };
    struct Row {
        std::string name;
        std::string registry;
        std::vector<std::string> args;
        int exitCode;
        std::vector<std::string> messages;
    };
    std::vector<Row> rows = {
        {"unknown_printer", sample, {"printer", "forms", "No Such Printer"}, kUnknownPrinter,
         {"has no printer \"No Such Printer\""}},
        {"printer_outside_the_registry", sample, {"printer", "forms", "../printers"},
         kUnknownPrinter, {}},
        {"no_registry", (m_dir / "nowhere").string(), {"printer", "forms", kSample},
         kPrinterConfig, {"does not exist"}},
        {"no_printer_ini", own, {"printer", "forms", "Empty"}, kPrinterConfig,
         {"printer.ini is missing"}},
        {"binary_printer_ini", own, {"printer", "forms", "Binary"}, kPrinterConfig,
         {"is not a text file"}},
        {"bad_forms", own, {"printer", "forms", "Bad"}, kPrinterConfig,
         {"Broken=25001,9,0,2970,5011", "Short=25005,258"}},
        {"no_usable_form", own, {"printer", "forms", "NoForms"}, kPrinterConfig,
         {"lists no form a PrintTicket can use"}},
        {"no_form_of_the_size", own, setMedia(m_letter, "A4Only", "100x100mm"), kNoMatchingForm,
         {"has no form of 1000x1000 tenths of a millimetre"}},
        {"missing_ticket", sample, setMedia((m_dir / "missing.xml").string(), kSample, "210x297mm"),
         kInputMissing, {}},
        {"broken_ticket", sample, setMedia(broken, kSample, "210x297mm"), kBadTicket,
         {"not well-formed"}},
        {"not_a_ticket", sample, setMedia(notTicket, kSample, "210x297mm"), kBadTicket,
         {"is not a PrintTicket"}},
        {"set_media_unknown_printer", sample, setMedia(m_letter, "Nobody", "210x297mm"),
         kUnknownPrinter, {}},
        {"no_printer", sample, {"ticket", "set-media", m_letter, "--size", "1x1"}, kUsage, {}},
    };
    // Sizes of zero or below, or too large.
    for (const char* size : {"0x297mm", "210x0", "-210x297mm", "210x-1in", "0.0004x297mm",
                             "3000000000x1", "100000x1in"}) {
        rows.push_back({size, sample, setMedia(m_letter, kSample, size), kBadSize, {""}});
    }
    for (const char* size : {"210", "210x297cm", "axb", "210x297x3", "x297", "210x", "nanxinf"}) {
        rows.push_back({size, sample, setMedia(m_letter, kSample, size), kUsage,
                        {"expected WIDTHxHEIGHT"}});
    }
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        m_environment["FU_PRINTER_REGISTRY"] = row.registry;
        const Outcome run = Run(row.args);
        EXPECT_EQ(run.exitCode, row.exitCode) << run.err;
        EXPECT_FALSE(run.err.empty());
        for (const std::string& message : row.messages) {
            EXPECT_NE(run.err.find(message), std::string::npos) << message << "\n" << run.err;
        }
        EXPECT_TRUE(run.out.empty()) << run.out;
    }
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
