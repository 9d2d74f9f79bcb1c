// Tests of `xpsfilter devmode`: a description encoded into a ticket decodes to the same
// description (and re-encodes to the same ticket), real tickets of another driver are described
// and flagged, and bad descriptions, tickets and files give a clear message and their exit code.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
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
using toolrunner::ReadFile;

void WriteFile(const fs::path& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary);
    out << text;
}

class DevmodeCommand : public ::testing::Test {
protected:
    void SetUp() override {
        const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
        dir = fs::path(FU_BINARY_DIR) / "test-tmp" / "devmode_cli" / info->name();
        fs::remove_all(dir);
        fs::create_directories(dir);
    }
    void TearDown() override { fs::remove_all(dir); }

    Outcome Run(const std::vector<std::string>& args) {
        std::string command = Quote(std::string(FU_BINARY_DIR) + "/bin/xpsfilter");
        for (const std::string& arg : args) command += " " + Quote(arg);
        return toolrunner::ShellSplit(command, dir / "stderr.txt");
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

}  // namespace

TEST_F(DevmodeCommand, EncodedDescriptionsDecodeAndReencodeToTheSameTicket) {
    WriteFile(Path("d.txt"), kDescription);
    Outcome encoded = Run({"devmode", "encode", Path("d.txt"), "-o", Path("t.xml")});
    ASSERT_EQ(encoded.exitCode, 0) << encoded.err;
    std::string ticket = ReadFile(Path("t.xml"));
    EXPECT_NE(ticket.find("name=\"zk:PageDevmodeSnapshot\""), std::string::npos);

    Outcome decoded = Run({"devmode", "decode", Path("t.xml")});
    ASSERT_EQ(decoded.exitCode, 0) << decoded.err;
    const std::string& text = decoded.out;
    for (const char* expected :
         {"deviceName = \"Zorun Universal XPS\"", "orientation = 2", "copies = 3",
          "layout = postscript", "coreSize = 200", "CRC stored", "match", "215 = option 7242",
          "160 = integer -150", "216 = boolean true unspecified", "477/210/168 = option 5011",
          "477/210/164/172 = dimension 210.5 mm", "9000 = string \"tab\\tquote\\\" \xC3\xA9\"",
          "[record 7]", "hex = 00 01 fe ff"}) {
        EXPECT_NE(text.find(expected), std::string::npos) << expected << "\n" << text;
    }

    WriteFile(Path("d2.txt"), DescriptionLines(text));
    Outcome again = Run({"devmode", "encode", Path("d2.txt"), "-o", Path("t2.xml")});
    ASSERT_EQ(again.exitCode, 0) << again.err;
    EXPECT_EQ(ReadFile(Path("t2.xml")), ticket);
}

// Known features and options are named beside their numbers, in comments (which encode ignores)
// and in the JSON form.
TEST_F(DevmodeCommand, DecodeNamesKnownFeaturesAndOptions) {
    WriteFile(Path("d.txt"), kDescription);
    ASSERT_EQ(Run({"devmode", "encode", Path("d.txt"), "-o", Path("t.xml")}).exitCode, 0);
    const Outcome decoded = Run({"devmode", "decode", Path("t.xml")});
    ASSERT_EQ(decoded.exitCode, 0) << decoded.err;
    EXPECT_NE(decoded.out.find("# NUpPagesPerSheet: NUp4\n215 = option 7242\n"), std::string::npos)
        << decoded.out;
    EXPECT_NE(decoded.out.find("# PaperSize: ISOA4\n477/210/168 = option 5011\n"),
              std::string::npos)
        << decoded.out;

    const Outcome json = Run({"devmode", "decode", "--json", Path("t.xml")});
    ASSERT_EQ(json.exitCode, 0) << json.err;
    WriteFile(Path("d.json"), json.out);
    const toolrunner::Outcome names = toolrunner::Shell(
        "python3 -c " +
        toolrunner::Quote(
            "import json, sys\n"
            "for a in json.load(open(sys.argv[1]))['devmodes'][0]['attributes']:\n"
            "    print(a['path'], a['type'], a['value'], a['feature'], a['option'])") +
        " " + toolrunner::Quote(Path("d.json")));
    EXPECT_NE(names.output.find("215 option 7242 NUpPagesPerSheet NUp4\n"), std::string::npos)
        << names.output;
    EXPECT_NE(names.output.find("160 integer -150 ScalingPercentage None\n"), std::string::npos)
        << names.output;
}

TEST_F(DevmodeCommand, JobDataIsWrittenIntoAGivenTicket) {
    WriteFile(Path("d.txt"), kDescription);
    WriteFile(Path("base.xml"),
              "<psf:PrintTicket xmlns:psf='http://schemas.microsoft.com/windows/2003/08/printing/"
              "printschemaframework' xmlns:psk='http://schemas.microsoft.com/windows/2003/08/"
              "printing/printschemakeywords' version='1'><psf:Feature name='psk:PageOrientation'>"
              "<psf:Option name='psk:Landscape'/></psf:Feature></psf:PrintTicket>");
    Outcome encoded =
        Run({"devmode", "encode", "--as", "job", "--ticket", Path("base.xml"), Path("d.txt")});
    ASSERT_EQ(encoded.exitCode, 0) << encoded.err;
    EXPECT_NE(encoded.out.find("psk:Landscape"), std::string::npos);
    EXPECT_NE(encoded.out.find("JobZorunDriverData"), std::string::npos);
    WriteFile(Path("t.xml"), encoded.out);

    Outcome decoded = Run({"devmode", "decode", "--which", "job", Path("t.xml")});
    EXPECT_EQ(decoded.exitCode, 0) << decoded.err;
    EXPECT_NE(decoded.out.find("# JobZorunDriverData"), std::string::npos);
    EXPECT_NE(decoded.out.find("215 = option 7242"), std::string::npos);

    // The page snapshot is asked for: there is none.
    Outcome page = Run({"devmode", "decode", "--which", "page", Path("t.xml")});
    EXPECT_EQ(page.exitCode, 0);
    EXPECT_NE(page.err.find("no PageDevmodeSnapshot"), std::string::npos);
}

TEST_F(DevmodeCommand, AnotherDriversDevmodeIsDescribedAndFlagged) {
    Outcome decoded = Run({"devmode", "decode",
                           std::string(FU_CORPUS_DIR) +
                               "/tickets/libarchive_test_compat_zip_7.xps__Metadata_Job_PT.xml"});
    EXPECT_EQ(decoded.exitCode, 7);
    EXPECT_NE(decoded.out.find("deviceName = \"Microsoft XPS Document Writer\""),
              std::string::npos);
    EXPECT_NE(decoded.out.find("formName = \"A4\""), std::string::npos);
    EXPECT_NE(decoded.err.find("no driver plug-in part"), std::string::npos) << decoded.err;
}

TEST_F(DevmodeCommand, BadDescriptionsNameTheLine) {
    struct Case {
        const char* text;
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
    };
    int index = 0;
    for (const Case& c : cases) {
        std::string name = "bad" + std::to_string(index++) + ".txt";
        WriteFile(Path(name), c.text);
        Outcome outcome = Run({"devmode", "encode", Path(name), "-o", Path("out.xml")});
        EXPECT_EQ(outcome.exitCode, 7) << c.text;
        EXPECT_NE(outcome.err.find(c.message), std::string::npos) << c.text << "\n" << outcome.err;
        EXPECT_TRUE(outcome.out.empty());
        EXPECT_FALSE(fs::exists(Path("out.xml")));
    }

    // Records that together do not fit the plug-in part.
    std::string big = "[record 9]\nhex =";
    for (int i = 0; i < 6000; ++i) big += " 00";
    WriteFile(Path("big.txt"), big + "\n");
    Outcome outcome = Run({"devmode", "encode", Path("big.txt")});
    EXPECT_EQ(outcome.exitCode, 7);
    EXPECT_NE(outcome.err.find("do not fit the plug-in part"), std::string::npos) << outcome.err;
}

TEST_F(DevmodeCommand, BadTicketsAndFiles) {
    Outcome missing = Run({"devmode", "decode", Path("nothing.xml")});
    EXPECT_EQ(missing.exitCode, 3);
    EXPECT_NE(missing.err.find("cannot read"), std::string::npos);

    WriteFile(Path("broken.xml"), "<psf:PrintTicket");
    Outcome broken = Run({"devmode", "decode", Path("broken.xml")});
    EXPECT_EQ(broken.exitCode, 7);
    EXPECT_NE(broken.err.find("not well-formed"), std::string::npos);

    WriteFile(Path("other.xml"), "<root/>");
    Outcome other = Run({"devmode", "decode", Path("other.xml")});
    EXPECT_EQ(other.exitCode, 7);
    EXPECT_NE(other.err.find("not a PrintTicket"), std::string::npos);

    const std::string header =
        "<psf:PrintTicket xmlns:psf='http://schemas.microsoft.com/windows/2003/08/printing/"
        "printschemaframework' xmlns:xsi='http://www.w3.org/2001/XMLSchema-instance' "
        "xmlns:zk='http://schemas.zorun.example/enterprise/print/driver/native/"
        "printSchemaPrivateKeywords/2006/11' version='1'>";
    WriteFile(Path("crc.xml"),
              header +
                  "<psf:ParameterInit name='zk:JobZorunDriverData'><psf:Value>"
                  "AAAAAEFCQ0RFRg==</psf:Value></psf:ParameterInit></psf:PrintTicket>");
    Outcome crc = Run({"devmode", "decode", Path("crc.xml")});
    EXPECT_EQ(crc.exitCode, 7);
    EXPECT_NE(crc.err.find("JobZorunDriverData is damaged"), std::string::npos) << crc.err;

    WriteFile(Path("short.xml"), header +
                                     "<psf:ParameterInit name='zk:PageDevmodeSnapshot'><psf:Value>"
                                     "QUJDRA==</psf:Value></psf:ParameterInit></psf:PrintTicket>");
    Outcome tooShort = Run({"devmode", "decode", Path("short.xml")});
    EXPECT_EQ(tooShort.exitCode, 7);
    EXPECT_NE(tooShort.err.find("fewer than the 220"), std::string::npos) << tooShort.err;

    Outcome usage = Run({"devmode"});
    EXPECT_EQ(usage.exitCode, 2);
    Outcome badWhich = Run({"devmode", "decode", "--which", "both", Path("crc.xml")});
    EXPECT_EQ(badWhich.exitCode, 2);
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
        WriteFile(Path("d.txt"), std::string("[devmode]\n[plugin]\n") + row.plugin);
        ASSERT_EQ(Run({"devmode", "encode", Path("d.txt"), "-o", Path("t.xml")}).exitCode, 0);
        Outcome decoded = Run({"devmode", "decode", Path("t.xml")});
        ASSERT_EQ(decoded.exitCode, 0) << decoded.err;
        EXPECT_NE(decoded.out.find(row.expected), std::string::npos) << decoded.out;
    }
}
