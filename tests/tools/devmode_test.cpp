// Tests of `xpsfilter devmode`: a description encoded into a ticket decodes to the same
// description (and re-encodes to the same ticket), real tickets of another driver are described
// and flagged, and bad descriptions, tickets and files give a clear message and their exit code.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "toolrunner.h"

namespace {

namespace fs = std::filesystem;

using Outcome = toolrunner::SplitOutcome;
using toolrunner::Quote;
using toolrunner::ExpectContains;
using toolrunner::ReadFile;

class DevmodeCommand : public ::testing::Test {
protected:
    void SetUp() override {
        dir = toolrunner::WorkDir(std::string("devmode_") +
                                  ::testing::UnitTest::GetInstance()->current_test_info()->name());
    }

    Outcome Run(const std::vector<std::string>& args) {
        std::string command = Quote(toolrunner::Tool());
        for (const std::string& arg : args) command += " " + Quote(arg);
        return toolrunner::ShellSplit(command, dir / "stderr.txt");
    }

    // Writes a file of the test's folder; its path.
    std::string Write(const std::string& name, const std::string& text) {
        std::ofstream(dir / name, std::ios::binary) << text;
        return Path(name);
    }

    std::string Path(const std::string& name) const { return (dir / name).string(); }

    fs::path dir;
};

constexpr char kDescription[] =
    "# a driver device mode\n"
    "[devmode]\n"
    "deviceName = \"Zorun Universal XPS\"\n"
    "formName = A4\n"
    "fields = 0x00000103\n"
    "orientation = 2\n"
    "paperSize = 9\n"
    "copies = 3\n"
    "\n"
    "[plugin]\n"
    "layout = postscript\n"
    "coreSize = 200\n"
    "\n"
    "[attributes]\n"
    "215 = option 7242\n"
    "160 = integer -150\n"
    "216 = boolean true unspecified\n"
    "477/210/168 = option 5011\n"
    "477/210/164/172 = dimension 210.5 mm\n"
    "9000 = string \"tab\\tquote\\\" \\u00e9\"\n"
    "\n"
    "[record 7]\n"
    "hex = 00 01 fe ff\n";

// The description lines of a decode, without comments and the title.
std::string DescriptionLines(const std::string& decoded) {
    std::istringstream in(decoded);
    std::string line;
    std::string kept;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#') continue;
        kept += line + "\n";
    }
    return kept;
}


TEST_F(DevmodeCommand, EncodedDescriptionsDecodeAndReencodeToTheSameTicket) {
    Outcome encoded = Run({"devmode", "encode", Write("d.txt", kDescription), "-o", Path("t.xml")});
    ASSERT_EQ(encoded.exitCode, 0) << encoded.err;
    const std::string ticket = ReadFile(Path("t.xml"));
    ExpectContains(ticket, {"name=\"zk:PageDevmodeSnapshot\""});

    Outcome decoded = Run({"devmode", "decode", Path("t.xml")});
    ASSERT_EQ(decoded.exitCode, 0) << decoded.err;
    ExpectContains(decoded.out,
                   {"deviceName = \"Zorun Universal XPS\"", "orientation = 2", "copies = 3",
                    "layout = postscript", "coreSize = 200", "CRC stored", "match",
                    "215 = option 7242", "160 = integer -150", "216 = boolean true unspecified",
                    "477/210/168 = option 5011", "477/210/164/172 = dimension 210.5 mm",
                    "9000 = string \"tab\\tquote\\\" \xC3\xA9\"", "[record 7]",
                    "hex = 00 01 fe ff",
                    // Known features and options are named beside their numbers, in comments
                    // (which encode ignores).
                    "# NUpPagesPerSheet: NUp4\n215 = option 7242\n",
                    "# PaperSize: ISOA4\n477/210/168 = option 5011\n"});

    Outcome again = Run({"devmode", "encode", Write("d2.txt", DescriptionLines(decoded.out)), "-o",
                         Path("t2.xml")});
    ASSERT_EQ(again.exitCode, 0) << again.err;
    EXPECT_EQ(ReadFile(Path("t2.xml")), ticket);

    // And in the JSON form.
    const Outcome json = Run({"devmode", "decode", "--json", Path("t.xml")});
    ASSERT_EQ(json.exitCode, 0) << json.err;
    const toolrunner::Outcome names = toolrunner::Shell(
        "python3 -c " +
        Quote("import json, sys\n"
              "for a in json.load(open(sys.argv[1]))['devmodes'][0]['attributes']:\n"
              "    print(a['path'], a['type'], a['value'], a['feature'], a['option'])") +
        " " + Quote(Write("d.json", json.out)));
    ExpectContains(names.output, {"215 option 7242 NUpPagesPerSheet NUp4\n",
                                  "160 integer -150 ScalingPercentage None\n"});
}

TEST_F(DevmodeCommand, JobDataIsWrittenIntoAGivenTicket) {
    const std::string base = Write(
        "base.xml",
        "<psf:PrintTicket xmlns:psf='http://schemas.microsoft.com/windows/2003/08/printing/"
        "printschemaframework' xmlns:psk='http://schemas.microsoft.com/windows/2003/08/"
        "printing/printschemakeywords' version='1'><psf:Feature name='psk:PageOrientation'>"
        "<psf:Option name='psk:Landscape'/></psf:Feature></psf:PrintTicket>");
    Outcome encoded =
        Run({"devmode", "encode", "--as", "job", "--ticket", base, Write("d.txt", kDescription)});
    ASSERT_EQ(encoded.exitCode, 0) << encoded.err;
    ExpectContains(encoded.out, {"psk:Landscape", "JobZorunDriverData"});

    Outcome decoded = Run({"devmode", "decode", "--which", "job", Write("t.xml", encoded.out)});
    EXPECT_EQ(decoded.exitCode, 0) << decoded.err;
    ExpectContains(decoded.out, {"# JobZorunDriverData", "215 = option 7242"});

    // The page snapshot is asked for: there is none.
    Outcome page = Run({"devmode", "decode", "--which", "page", Path("t.xml")});
    EXPECT_EQ(page.exitCode, 0);
    ExpectContains(page.err, {"no PageDevmodeSnapshot"});
}

TEST_F(DevmodeCommand, AnotherDriversDevmodeIsDescribedAndFlagged) {
    Outcome decoded = Run({"devmode", "decode",
                           std::string(FU_CORPUS_DIR) +
                               "/tickets/libarchive_test_compat_zip_7.xps__Metadata_Job_PT.xml"});
    EXPECT_EQ(decoded.exitCode, 7);
    ExpectContains(decoded.out,
                   {"deviceName = \"Microsoft XPS Document Writer\"", "formName = \"A4\""});
    ExpectContains(decoded.err, {"no driver plug-in part"});
}

TEST_F(DevmodeCommand, BadDescriptionsNameTheLine) {
    std::string big = "[record 9]\nhex =";
    for (int i = 0; i < 6000; ++i) big += " 00";
    const struct {
        std::string text;
        const char* message;
    } cases[] = {
        {"[nonsense]\n", "line 1: unknown section"},
        {"key = 1\n", "line 1: a key outside a section"},
        {"[devmode]\ncopies = many\n", "line 2: copies is not an integer"},
        {"[devmode]\ncopies = 70000\n", "line 2: copies 70000 is out of range"},
        {"[devmode]\ncopies = 1\ncopies = 2\n", "line 3: 'copies' is given twice"},
        {"[devmode]\ndeviceName = \"0123456789012345678901234567890123\"\n",
         "line 2: deviceName is longer than 31"},
        {"[attributes]\n5 = string \"open\n", "line 2: a string is not closed"},
        {"[attributes]\n5 = integer 1\n5 = integer 2\n", "line 3: feature 5 is named twice"},
        {"[attributes]\n5 = integer 1\n5/6 = integer 2\n", "line 3: feature 5 is not a collection"},
        {"[attributes]\n5 = colour red\n", "line 2: unknown attribute type 'colour'"},
        {"[attributes]\n5 = dimension 3 furlongs\n", "line 2: unknown unit 'furlongs'"},
        {"[attributes]\n5 = dimension nan mm\n", "line 2: not a finite number"},
        {"[attributes]\n[attributes]\n", "line 2: namespace"},
        {"[record 7]\nhex = 0g\n", "line 2: not a hexadecimal digit"},
        {"[record 7]\nhex = 012\n", "line 2: an odd number of hexadecimal digits"},
        {"[plugin]\nlayout = sideways\n", "line 2: layout is postscript or raster"},
        {"[plugin]\ncoreSize = 100\n", "coreSize must leave room"},
        {"[record 1]\nhex = 00\n[record 2]\nhex = 00\n[record 3]\nhex = 00\n"
         "[record 4]\nhex = 00\n[plugin]\ntrailing = 65535\n",
         "coreSize must leave room"},
        // Records that together do not fit the plug-in part.
        {big + "\n", "do not fit the plug-in part"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text.substr(0, 60));
        Outcome outcome =
            Run({"devmode", "encode", Write("bad.txt", c.text), "-o", Path("out.xml")});
        EXPECT_EQ(outcome.exitCode, 7);
        ExpectContains(outcome.err, {c.message});
        EXPECT_TRUE(outcome.out.empty());
        EXPECT_FALSE(fs::exists(Path("out.xml")));
    }
}

TEST_F(DevmodeCommand, BadTicketsAndFiles) {
    const std::string header =
        "<psf:PrintTicket xmlns:psf='http://schemas.microsoft.com/windows/2003/08/printing/"
        "printschemaframework' xmlns:xsi='http://www.w3.org/2001/XMLSchema-instance' "
        "xmlns:zk='http://schemas.zorun.example/enterprise/print/driver/native/"
        "printSchemaPrivateKeywords/2006/11' version='1'>";
    const std::string crc = Write("crc.xml", header +
                                                 "<psf:ParameterInit name='zk:JobZorunDriverData'>"
                                                 "<psf:Value>AAAAAEFCQ0RFRg==</psf:Value>"
                                                 "</psf:ParameterInit></psf:PrintTicket>");
    const struct {
        const char* name;
        std::vector<std::string> args;
        int exitCode;
        const char* message;
    } rows[] = {
        {"missing", {"decode", Path("nothing.xml")}, 3, "cannot read"},
        {"broken", {"decode", Write("broken.xml", "<psf:PrintTicket")}, 7, "not well-formed"},
        {"other", {"decode", Write("other.xml", "<root/>")}, 7, "not a PrintTicket"},
        {"crc", {"decode", crc}, 7, "JobZorunDriverData is damaged"},
        {"short",
         {"decode", Write("short.xml", header +
                                           "<psf:ParameterInit name='zk:PageDevmodeSnapshot'>"
                                           "<psf:Value>QUJDRA==</psf:Value></psf:ParameterInit>"
                                           "</psf:PrintTicket>")},
         7, "fewer than the 220"},
        {"usage", {}, 2, ""},
        {"bad_which", {"decode", "--which", "both", crc}, 2, ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        std::vector<std::string> args = {"devmode"};
        args.insert(args.end(), row.args.begin(), row.args.end());
        const Outcome outcome = Run(args);
        EXPECT_EQ(outcome.exitCode, row.exitCode);
        ExpectContains(outcome.err, {row.message});
    }
}

// The core driver's size follows the layout unless the description gives it.
TEST_F(DevmodeCommand, TheCoreSizeDefaultsPerLayout) {
    const struct {
        const char* name;
        const char* plugin;
        const char* expected;
    } rows[] = {
        {"postscript default", "layout = postscript\n", "coreSize = 160\n"},
        {"raster default", "layout = raster\n", "coreSize = 24\n"},
        {"raster given", "layout = raster\ncoreSize = 40\n", "coreSize = 40\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const std::string description =
            Write("d.txt", std::string("[devmode]\n[plugin]\n") + row.plugin);
        ASSERT_EQ(Run({"devmode", "encode", description, "-o", Path("t.xml")}).exitCode, 0);
        Outcome decoded = Run({"devmode", "decode", Path("t.xml")});
        ASSERT_EQ(decoded.exitCode, 0) << decoded.err;
        ExpectContains(decoded.out, {row.expected});
    }
}

}  // namespace
