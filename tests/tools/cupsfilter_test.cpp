// The CUPS filter filterutilities-xps, run by Debian's real `cupsfilter` (no scheduler needed:
// a cups-files.conf of the test's own points ServerBin and DataDir at folders holding the
// system's filters and MIME files and the build tree's), and run directly with the CUPS filter
// arguments: options become job ticket settings, pages render as before, bad input and SIGTERM
// end the job with nothing on standard output and no temporary file left.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "../filters/outputpackage.h"
#include "toolrunner.h"

namespace {

namespace fs = std::filesystem;
using namespace toolrunner;

const std::string kFilter = std::string(FU_BINARY_DIR) + "/lib/cups/filter/filterutilities-xps";
const std::string kPpd = std::string(FU_BINARY_DIR) + "/share/filterutilities/ppd/zorun-sample.ppd";
// Debian's cupsfilter (package cups).
const std::string kCupsfilter = "/usr/sbin/cupsfilter";
const std::string kSampleJob = std::string(FU_SOURCE_DIR) + "/samples/sample_job.xps";

void WriteText(const fs::path& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

// Links every entry of `from` into `to`.
void LinkEntries(const fs::path& from, const fs::path& to) {
    fs::create_directories(to);
    for (const auto& entry : fs::directory_iterator(from)) {
        fs::create_symlink(entry.path(), to / entry.path().filename());
    }
}

// The system's filters and MIME files with the build tree's beside them, in `dir`'s serverbin
// and data folders.
void LinkCupsFiles(const fs::path& dir) {
    LinkEntries("/usr/lib/cups/filter", dir / "serverbin/filter");
    fs::create_symlink(kFilter, dir / "serverbin/filter/filterutilities-xps");
    LinkEntries("/usr/share/cups/mime", dir / "data/mime");
    for (const char* name : {"filterutilities.types", "filterutilities.convs"}) {
        fs::create_symlink(fs::path(FU_BINARY_DIR) / "share/cups/mime" / name,
                           dir / "data/mime" / name);
    }
}

// A CUPS configuration in `dir` for cupsfilter -c: its cups-files.conf.
fs::path CupsConfiguration(const fs::path& dir) {
    LinkCupsFiles(dir);
    fs::create_directories(dir / "root");
    fs::create_directories(dir / "tmp");
    fs::path conf = dir / "cups-files.conf";
    WriteText(conf, "ServerBin " + (dir / "serverbin").string() + "\nDataDir " +
                        (dir / "data").string() + "\nServerRoot " + (dir / "root").string() +
                        "\nTempDir " + (dir / "tmp").string() + "\n");
    return conf;
}

// What `xpsfilter ticket show` reads from a job's ticket, the PrintTicket of its fixed document
// sequence (the filter library's view).
std::string ShowJobTicket(const std::string& package, const fs::path& dir) {
    const outputpackage::Package job(package);
    const std::string ticket = job.TicketOf(job.SequenceName());
    EXPECT_FALSE(ticket.empty()) << package << ": the sequence has no ticket";
    WriteText(dir / "job-ticket.xml", job.Part(ticket));
    Outcome shown = RunTool({"ticket", "show", (dir / "job-ticket.xml").string()});
    EXPECT_EQ(shown.exitCode, 0) << shown.output;
    return shown.output;
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

// Every line the filter writes on standard error starts with a CUPS message prefix.
void ExpectCupsMessages(const std::string& err) {
    static const std::regex prefix("^(ERROR|WARNING|INFO|DEBUG|PAGE): .*");
    for (const std::string& line : Lines(err)) {
        EXPECT_TRUE(std::regex_match(line, prefix)) << "not a CUPS message: " << line;
    }
}

// Through cupsfilter, the way the scheduler would run the sample printer's queue: the PPD's
// *cupsFilter2 line picks the filter (-e), copies come as the copies argument (-n 3).
// The sample job carries a job ticket, the corpus job none.
TEST(Cupsfilter, OptionsReachTheJobTicketAndPagesRenderAsBefore) {
    for (const auto& [name, input] : std::vector<std::pair<std::string, std::string>>{
             {"sample_job_with_job_ticket", kSampleJob},
             {"corpus_job_without_job_ticket", testpackages::CorpusFile("tika_testPPT.xps")}}) {
        SCOPED_TRACE(name);
        const fs::path dir = WorkDir("cupsfilter-" + name);
        fs::path conf = CupsConfiguration(dir);
        fs::path output = dir / "out.xps";
        SplitOutcome run =
            ShellSplit(kCupsfilter + " -c " + Quote(conf.string()) + " -e -p " + Quote(kPpd) +
                           " -m printer/zorun -n 3 -o media=A5 -o sides=two-sided-long-edge"
                           " -o orientation-requested=4 -o job-uuid=urn:uuid:1 " +
                           Quote(input) + " > " + Quote(output.string()),
                       dir / "err.txt");
        ASSERT_EQ(run.exitCode, 0) << run.err;
        ExpectContains(run.err, {"INFO: filterutilities-xps (PID", "PAGE: 1 3\n",
                                 "DEBUG: option job-uuid=urn:uuid:1 has no PrintTicket setting"});
        ExpectContains(ShowJobTicket(output.string(), dir),
                       {"psk:PageMediaSize = psk:ISOA5", "psk:MediaSizeWidth = 148000",
                        "psk:JobDuplexAllDocumentsContiguously = psk:TwoSidedLongEdge",
                        "psk:PageOrientation = psk:Landscape", "psk:JobCopiesAllDocuments = 3"});
        ExpectRendersAlike(input, output.string(), dir);
        EXPECT_TRUE(fs::is_empty(dir / "tmp"));
    }
}

// The MIME files: a package named .oxps is OpenXPS, recognised by its content as an XPS package,
// and reaches the filter through the .convs line to application/vnd.cups-xps (no -e); so do the
// corpus packages; other ZIP files do not.
TEST(CupsfilterMime, OpenXpsGoesThroughTheConversionsFile) {
    fs::path dir = WorkDir("cupsfilter-oxps");
    fs::path conf = CupsConfiguration(dir);
    fs::path job = dir / "job.oxps";
    fs::copy_file(kSampleJob, job);
    Outcome listed = Shell(kCupsfilter + " -c " + Quote(conf.string()) + " -p " + Quote(kPpd) +
                           " -m application/vnd.cups-xps --list-filters " + Quote(job.string()));
    EXPECT_EQ(listed.exitCode, 0) << listed.output;
    ExpectContains(listed.output, {"filterutilities-xps"});

    fs::path output = dir / "out.xps";
    SplitOutcome run =
        ShellSplit(kCupsfilter + " -c " + Quote(conf.string()) + " -p " + Quote(kPpd) +
                       " -m application/vnd.cups-xps -o PageSize=Letter " + Quote(job.string()) +
                       " > " + Quote(output.string()),
                   dir / "err.txt");
    ASSERT_EQ(run.exitCode, 0) << run.err;
    ExpectContains(run.err, {"CONTENT_TYPE=application/oxps"});
    ExpectContains(ShowJobTicket(output.string(), dir),
                   {"psk:PageMediaSize = psk:NorthAmericaLetter"});

    // Every real-world package of the corpus is recognised by its content.
    for (const auto& entry : fs::directory_iterator(std::string(FU_CORPUS_DIR) + "/xps")) {
        Outcome typed =
            Shell(kCupsfilter + " -c " + Quote(conf.string()) +
                  " -m application/vnd.cups-xps --list-filters " + Quote(entry.path().string()));
        EXPECT_EQ(typed.output, "filterutilities-xps\n") << entry.path();
    }

    // A ZIP that is not an XPS package is not taken for one.
    const std::string other =
        testpackages::WriteZip("archive.zip", {{"word/document.xml", "<w/>"}});
    Outcome refused = Shell(kCupsfilter + " -c " + Quote(conf.string()) + " -p " + Quote(kPpd) +
                            " -m application/vnd.cups-xps " + Quote(other));
    EXPECT_NE(refused.exitCode, 0) << refused.output;
}

// A real print queue: Debian's cupsd, run in the foreground with a configuration of the test's
// own (its socket, spool, state and logs in the test's folder; the system's filters, backends and
// MIME files with the build tree's beside them), a queue made with lpadmin from the sample PPD
// and a file: device, and a job printed with lp. The job ticket of what reached the device has
// the options, and the scheduler's page log counts the PAGE: lines (3 pages, 2 copies each).
class Scheduler {
public:
    explicit Scheduler(const fs::path& dir) : m_dir(dir) {
        for (const char* folder : {"etc/ppd", "spool/tmp", "run", "cache", "log", "out"}) {
            fs::create_directories(dir / folder);
        }
        LinkCupsFiles(dir);
        for (const char* folder : {"backend", "daemon", "monitor", "notifier"}) {
            fs::create_symlink(fs::path("/usr/lib/cups") / folder, dir / "serverbin" / folder);
        }
        for (const auto& entry : fs::directory_iterator("/usr/share/cups")) {
            if (entry.path().filename() != "mime") {
                fs::create_symlink(entry.path(), dir / "data" / entry.path().filename());
            }
        }
        // Filters run as the scheduler's user (lp): they write in the temporary folder, and the
        // file: device writes in out/.
        fs::permissions(dir / "spool/tmp", fs::perms::all | fs::perms::sticky_bit);
        fs::permissions(dir / "out", fs::perms::all | fs::perms::sticky_bit);
        const std::string d = dir.string();
        WriteText(dir / "etc/cups-files.conf",
                  "ServerBin " + d + "/serverbin\nDataDir " + d + "/data\nServerRoot " + d +
                      "/etc\nRequestRoot " + d + "/spool\nTempDir " + d + "/spool/tmp\nStateDir " +
                      d + "/run\nCacheDir " + d + "/cache\nErrorLog " + d +
                      "/log/error_log\nAccessLog " + d + "/log/access_log\nPageLog " + d +
                      "/log/page_log\nFileDevice Yes\nSystemGroup root\n");
        WriteText(dir / "etc/cupsd.conf", "LogLevel debug\nListen " + Socket() +
                                              "\nBrowsing No\nWebInterface No\n"
                                              "<Policy default>\n<Limit All>\nOrder deny,allow\n"
                                              "</Limit>\n</Policy>\n");
        Outcome started = Shell("/usr/sbin/cupsd -f -c " + Quote(d + "/etc/cupsd.conf") + " -s " +
                                Quote(d + "/etc/cups-files.conf") + " > " +
                                Quote(d + "/log/cupsd.out") + " 2>&1 & echo $!");
        m_pid = std::atoi(started.output.c_str());
        for (int i = 0; i < 100 && !fs::exists(Socket()); ++i) Shell("sleep 0.1");
    }
    ~Scheduler() {
        if (m_pid > 0) Shell("kill " + std::to_string(m_pid));
    }
    Scheduler(const Scheduler&) = delete;
    Scheduler& operator=(const Scheduler&) = delete;

    std::string Socket() const { return (m_dir / "cups.sock").string(); }
    // A CUPS client command run against this scheduler.
    Outcome Client(const std::string& command) const {
        return Shell("CUPS_SERVER=" + Quote(Socket()) + " " + command);
    }

private:
    fs::path m_dir;
    int m_pid = 0;
};

TEST(CupsQueue, LpPrintsThroughTheSamplePpd) {
    fs::path dir = WorkDir("cups-queue");
    Scheduler scheduler(dir);
    ASSERT_TRUE(fs::exists(scheduler.Socket())) << ReadFile(dir / "log/cupsd.out");
    const fs::path device = dir / "out/job.xps";
    Outcome added = scheduler.Client("/usr/sbin/lpadmin -p zorun -E -v " +
                                     Quote("file://" + device.string()) + " -P " + Quote(kPpd));
    ASSERT_EQ(added.exitCode, 0) << added.output;
    Outcome printed = scheduler.Client(
        "/usr/bin/lp -d zorun -n 2 -o media=A5 -o sides=two-sided-long-edge -o landscape " +
        Quote(kSampleJob));
    ASSERT_EQ(printed.exitCode, 0) << printed.output;
    Outcome completed;
    for (int i = 0; i < 300; ++i) {
        completed = scheduler.Client("/usr/bin/lpstat -W completed -o zorun");
        if (completed.output.find("zorun-") != std::string::npos) break;
        Shell("sleep 0.1");
    }
    ASSERT_NE(completed.output.find("zorun-"), std::string::npos)
        << scheduler.Client("/usr/bin/lpstat -l -o").output << ReadFile(dir / "log/error_log");

    ExpectContains(ShowJobTicket(device.string(), dir),
                   {"psk:PageMediaSize = psk:ISOA5",
                    "psk:JobDuplexAllDocumentsContiguously = psk:TwoSidedLongEdge",
                    "psk:PageOrientation = psk:Landscape", "psk:JobCopiesAllDocuments = 2"});
    ExpectRendersAlike(kSampleJob, device.string(), dir);
    ExpectContains(ReadFile(dir / "log/page_log"), {" total 6 "});
}

// The filter run directly, as the scheduler runs it: job on standard input, options argument.
std::string FilterCommand(const fs::path& tmp, const std::string& options,
                          const std::string& copies = "1") {
    return "TMPDIR=" + Quote(tmp.string()) + " PPD=" + Quote(kPpd) + " PRINTER=zorun " +
           Quote(kFilter) + " 42 alice title " + copies + " " + Quote(options);
}

TEST(CupsFilterProgram, JobOnStandardInputWithOptions) {
    fs::path dir = WorkDir("cups-direct-stdin");
    fs::create_directories(dir / "tmp");
    fs::path output = dir / "out.xps";
    SplitOutcome run =
        ShellSplit(FilterCommand(dir / "tmp",
                                 "PageSize=A4 media=Custom.100x150mm Duplex=DuplexTumble landscape "
                                 "print-color-mode=monochrome print-quality=5 Resolution=300dpi "
                                 "number-up=2 page-ranges='1-2, 3' collate=false",
                                 "2") +
                       " < " + Quote(kSampleJob) + " > " + Quote(output.string()),
                   dir / "err.txt");
    ASSERT_EQ(run.exitCode, 0) << run.err;
    ExpectCupsMessages(run.err);
    ExpectContains(run.err, {"PAGE: 3 2\n"});
    EXPECT_TRUE(fs::is_empty(dir / "tmp"));

    // media wins over PageSize; a size without a keyword is a custom size.
    ExpectContains(ShowJobTicket(output.string(), dir),
                   {"psk:PageMediaSize = psk:CustomMediaSize",
                    "psk:PageMediaSizeMediaSizeWidth = 100000",
                    "psk:PageMediaSizeMediaSizeHeight = 150000",
                    "psk:JobDuplexAllDocumentsContiguously = psk:TwoSidedShortEdge",
                    "psk:PageOrientation = psk:Landscape", "psk:PageOutputColor = psk:Grayscale",
                    "psk:PageOutputQuality = psk:High", "psk:ResolutionX = 300",
                    "psk:PagesPerSheet = 2", "psk:DocumentPageRanges = 1-2,3",
                    "psk:DocumentCollate = psk:Uncollated", "psk:JobCopiesAllDocuments = 2"});
    ExpectRendersAlike(kSampleJob, output.string(), dir);
}

// Page sizes only the printer's PPD knows: one of a keyword's size (within the points' rounding),
// one without a keyword.
TEST(CupsFilterProgram, PageSizesOfThePpd) {
    fs::path dir = WorkDir("cups-direct-ppd-sizes");
    fs::create_directories(dir / "tmp");
    std::string ppd = ReadFile(kPpd);
    for (const auto& [anchor, added] : std::vector<std::pair<std::string, std::string>>{
             {"*CloseUI: *PageSize",
              "*PageSize ZorunA6/A6 Borderless: \"\"\n*PageSize ZorunPhoto/Photo: \"\"\n"},
             {"*DefaultPaperDimension",
              "*PaperDimension ZorunA6/A6 Borderless: \"298 420\"\n"
              "*PaperDimension ZorunPhoto/Photo: \"300 400\"\n"}}) {
        ppd.insert(ppd.find(anchor), added);
    }
    fs::path printerPpd = dir / "printer.ppd";
    WriteText(printerPpd, ppd);
    for (const auto& [size, expected] : std::vector<std::pair<std::string, std::string>>{
             {"ZorunA6", "psk:PageMediaSize = psk:ISOA6"},
             {"ZorunPhoto", "psk:PageMediaSizeMediaSizeWidth = 105833"}}) {
        SCOPED_TRACE(size);
        fs::path output = dir / (size + ".xps");
        SplitOutcome run = ShellSplit("TMPDIR=" + Quote((dir / "tmp").string()) +
                                          " PPD=" + Quote(printerPpd.string()) + " " +
                                          Quote(kFilter) + " 1 alice title 1 PageSize=" + size +
                                          " " + Quote(kSampleJob) + " > " + Quote(output.string()),
                                      dir / "err.txt");
        ASSERT_EQ(run.exitCode, 0) << run.err;
        ExpectContains(ShowJobTicket(output.string(), dir), {expected});
    }
}

TEST(CupsFilterProgram, BadInputGivesAnErrorAndNoOutput) {
    fs::path dir = WorkDir("cups-direct-bad");
    std::string sample = ReadFile(kSampleJob);
    struct BadInput {
        std::string name;
        std::string bytes;
        std::string message;
    };
    const std::vector<BadInput> inputs = {
        {"empty", "", "ERROR: input error: standard input is not a ZIP archive"},
        {"not_xps", "%PDF-1.4\n", "ERROR: input error: standard input is not a ZIP archive"},
        {"truncated", sample.substr(0, sample.size() / 2),
         "ERROR: input error: standard input is a truncated or damaged ZIP archive"},
        {"empty_zip", std::string("PK\x05\x06", 4) + std::string(18, '\0'),
         "ERROR: package error: "},
    };
    for (const BadInput& input : inputs) {
        SCOPED_TRACE(input.name);
        fs::path tmp = dir / (input.name + "-tmp");
        fs::create_directories(tmp);
        fs::path in = dir / (input.name + ".in");
        WriteText(in, input.bytes);
        fs::path output = dir / (input.name + ".out");
        SplitOutcome run = ShellSplit(FilterCommand(tmp, "media=A5") + " < " + Quote(in.string()) +
                                          " > " + Quote(output.string()),
                                      dir / "err.txt");
        EXPECT_EQ(run.exitCode, 1) << run.err;
        ExpectContains(run.err, {input.message});
        ExpectCupsMessages(run.err);
        EXPECT_EQ(fs::file_size(output), 0u);
        EXPECT_TRUE(fs::is_empty(tmp));
    }

    // The command line of a CUPS filter, and nothing else.
    for (const std::string& arguments :
         {std::string("1 alice title 1"), std::string("x alice title 1 ''"),
          std::string("1 alice title 0 ''")}) {
        SplitOutcome run =
            ShellSplit(Quote(kFilter) + " " + arguments + " < /dev/null", dir / "err.txt");
        EXPECT_EQ(run.exitCode, 1) << arguments;
        EXPECT_EQ(run.err.rfind("ERROR: ", 0), 0u) << arguments << ": " << run.err;
        EXPECT_TRUE(run.out.empty());
    }
}

// SIGTERM while the job is still arriving on standard input, and while the pipeline runs a large
// job: the filter stops, writes nothing on standard output and leaves no temporary file.
TEST(CupsFilterProgram, SigtermStopsTheJobCleanly) {
    fs::path dir = WorkDir("cups-direct-sigterm");
    fs::create_directories(dir / "tmp");
    // A job of many pages, which takes a while to run.
    const std::string large = testpackages::WriteZip("large.xps", testpackages::SmallJob(10000));
    const std::string err = (dir / "err.txt").string();
    const std::string out = (dir / "out.xps").string();
    // While spooling: half the job written into a FIFO that stays open.
    Outcome spooling = Shell(
        "cd " + Quote(dir.string()) + " && mkfifo in && (" + FilterCommand(dir / "tmp", "") +
        " < in > " + Quote(out) + " 2> " + Quote(err) + " & pid=$!; exec 3> in; head -c 4000 " +
        Quote(kSampleJob) + " >&3; for i in $(seq 100); do grep -q spooling " + Quote(err) +
        " && break; sleep 0.1; done; kill -TERM $pid; wait $pid; echo status=$?; exec 3>&-)");
    ExpectContains(spooling.output, {"status=1"});
    ExpectContains(ReadFile(err), {"INFO: job stopped (SIGTERM)"});
    EXPECT_EQ(fs::file_size(out), 0u);
    EXPECT_TRUE(fs::is_empty(dir / "tmp"));

    // While the pipeline runs: the signal comes after the first pages went out.
    Outcome running =
        Shell("cd " + Quote(dir.string()) + " && (" + FilterCommand(dir / "tmp", "") +
              " " + Quote(large) + " > " + Quote(out) + " 2> " + Quote(err) +
              " & pid=$!; for i in $(seq 200); do grep -q PAGE: " + Quote(err) +
              " && break; sleep 0.05; done; kill -TERM $pid; wait $pid; echo status=$?)");
    ExpectContains(running.output, {"status=1"});
    const std::string messages = ReadFile(err);
    ExpectContains(messages, {"PAGE: 1 1\n", "INFO: job stopped (SIGTERM)"});
    EXPECT_EQ(messages.find("INFO: printed"), std::string::npos) << messages;
    ExpectCupsMessages(messages);
    EXPECT_EQ(fs::file_size(out), 0u);
    EXPECT_TRUE(fs::is_empty(dir / "tmp"));
}

}  // namespace
