// Tests of the package writer's parallel compression: chunked deflate streams, output that
// matches the sequential writer item for item, raw copies kept in order among compressed items,
// and failures that leave no file behind, directly and through a job whose filter rewrites
// every page.
#include <gtest/gtest.h>
#include <zip.h>
#include <zlib.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "pipelinehost/deflatepool.h"
#include "pipelinehost/jobrunner.h"
#include "pipelinehost/packagewriter.h"
#include "pipelinehost/sourcepackage.h"
#include "testfilters.h"
#include "testpackages.h"

namespace {

using namespace pipelinehost;

std::string Text(std::size_t size, unsigned seed) {
    // clang-format off
    static const char* kWords[] = {
        "Path ", "Glyphs ", "Fill=\"#FF000000\" ", "Data=\"M 0,0 ", "L 10,", "20 ", "Z\" ",
        "<Canvas>", "</Canvas>\n"};
    // clang-format on
    std::mt19937 random(seed);
    std::string text;
    while (text.size() < size) text += kWords[random() % 9];
    text.resize(size);
    return text;
}

std::string Noise(std::size_t size, unsigned seed) {
    std::mt19937 random(seed);
    std::string bytes(size, '\0');
    for (char& c : bytes) c = static_cast<char>(random());
    return bytes;
}

std::string InflateRaw(const std::string& compressed) {
    z_stream stream{};
    EXPECT_EQ(inflateInit2(&stream, -MAX_WBITS), Z_OK);
    std::string out;
    char buffer[1 << 15];
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(compressed.data()));
    stream.avail_in = static_cast<uInt>(compressed.size());
    int result = Z_OK;
    while (result == Z_OK) {
        stream.next_out = reinterpret_cast<Bytef*>(buffer);
        stream.avail_out = sizeof buffer;
        result = inflate(&stream, Z_NO_FLUSH);
        out.append(buffer, sizeof buffer - stream.avail_out);
        if (result == Z_BUF_ERROR && stream.avail_in == 0) break;
    }
    EXPECT_EQ(result, Z_STREAM_END);
    inflateEnd(&stream);
    return out;
}

using testpackages::Item;
using testpackages::ReadZip;

TEST(DeflateChunks, SplitPartsFormOneStreamThatInflatesToTheWhole) {
    std::string whole = Text(300000, 1) + Noise(50000, 2) + Text(200000, 3);
    std::string compressed;
    std::string dictionary;
    const std::size_t pieces[] = {120000, 200000, 230000};
    std::size_t offset = 0;
    for (std::size_t size : pieces) {
        DeflateChunk chunk;
        chunk.input = whole.substr(offset, size);
        chunk.dictionary = dictionary;
        chunk.final = offset + size == whole.size();
        dictionary = chunk.input.substr(chunk.input.size() - DeflateChunk::kDictionarySize);
        DeflateChunkNow(chunk);
        ASSERT_TRUE(chunk.error.empty()) << chunk.error;
        EXPECT_EQ(chunk.inputSize, size);
        EXPECT_EQ(chunk.crc, crc32(0, reinterpret_cast<const Bytef*>(whole.data() + offset),
                                   static_cast<uInt>(size)));
        EXPECT_TRUE(chunk.input.empty());  // released once compressed
        compressed += chunk.output;
        offset += size;
    }
    EXPECT_EQ(InflateRaw(compressed), whole);
    // With the previous chunk as dictionary, splitting costs little over one stream.
    DeflateChunk single;
    single.input = whole;
    DeflateChunkNow(single);
    EXPECT_LT(compressed.size(), single.output.size() + single.output.size() / 50 + 64);
    EXPECT_EQ(InflateRaw(single.output), whole);
}

TEST(DeflateChunks, EmptyInputAndBadLevelsAreHandled) {
    DeflateChunk empty;
    DeflateChunkNow(empty);
    EXPECT_TRUE(empty.error.empty());
    EXPECT_EQ(InflateRaw(empty.output), "");
    EXPECT_EQ(empty.crc, 0u);

    DeflateChunk bad;
    bad.input = "some bytes";
    bad.level = 42;
    DeflateChunkNow(bad);
    EXPECT_FALSE(bad.error.empty());
    EXPECT_TRUE(bad.output.empty());
}

TEST(DeflateChunks, PoolCompressesEverySubmittedChunk) {
    DeflatePool pool(3);
    EXPECT_EQ(pool.Threads(), 3u);
    std::vector<std::shared_ptr<DeflateChunk>> chunks;
    for (unsigned i = 0; i < 40; ++i) {
        auto chunk = std::make_shared<DeflateChunk>();
        chunk->input = Text(1000 + i * 997, i);
        chunk->level = 1 + static_cast<int>(i % 9);
        pool.Submit(chunk);
        chunks.push_back(chunk);
    }
    for (unsigned i = 0; i < chunks.size(); ++i) {
        pool.Wait(*chunks[i]);
        EXPECT_TRUE(pool.Ready(*chunks[i]));
        EXPECT_EQ(InflateRaw(chunks[i]->output), Text(1000 + i * 997, i)) << i;
    }
}

// The same items written by the sequential writer (compression on the writing thread) and by
// the parallel one: many small parts, large ones that span several chunks (compressible,
// incompressible, exactly two chunks, stored), an empty one, and raw copies among them.
struct Workload {
    std::vector<Item> expected;
    std::string source;

    Workload() {
        std::vector<testpackages::Entry> entries = testpackages::SmallJob(1);
        entries.push_back({"copied/a.xml", Text(5000, 7)});
        entries.push_back({"copied/b.bin", Noise(3000, 8)});
        entries.push_back({"copied/c.txt", "stored", true});
        source = testpackages::WriteZip("writer_source.xps", entries);
    }

    void Write(PackageWriter& out) {
        auto package = SourcePackage::Open(source, ReaderLimits{});
        auto copy = [&](const std::string& name, const std::string& as) {
            const SourcePart* part = package->Find("/" + name);
            ASSERT_NE(part, nullptr);
            out.CopyRaw(as, package, part->items[0]);
            expected.push_back({as, package->ReadMarkup(*part), part->items[0].method});
        };
        auto write = [&](const std::string& name, const std::string& content, int level) {
            out.WriteBytes(name, content, level);
            expected.push_back({name, content, level == 0 ? ZIP_CM_STORE : ZIP_CM_DEFLATE});
        };
        copy("copied/a.xml", "first/a.xml");
        for (unsigned i = 0; i < 300; ++i) {
            write("small/" + std::to_string(i) + ".xml", Text(200 + (i * 37) % 5000, i), 6);
            if (i % 50 == 10) copy("copied/b.bin", "mid/" + std::to_string(i) + ".bin");
            if (i == 120) {
                write("large/text.xml", Text(PackageWriter::kChunkSize * 3 + 12345, 99), 6);
                copy("copied/c.txt", "after/large.txt");
                write("large/noise.bin", Noise(PackageWriter::kChunkSize * 2 + 7, 98), 9);
                write("large/exact.xml", Text(PackageWriter::kChunkSize * 2, 97), 1);
                write("large/stored.bin", Noise(PackageWriter::kChunkSize + 100, 96), 0);
                write("empty.xml", "", 6);
            }
        }
        copy("copied/a.xml", "last/a.xml");
        out.Finish();
        out.Commit();
    }
};

TEST(ParallelCompression, OutputMatchesTheSequentialWriterItemForItem) {
    std::string sequentialPath = testpackages::TempPath("sequential.zip");
    std::string parallelPath = testpackages::TempPath("parallel.zip");
    Workload sequential;
    {
        PackageWriter out(sequentialPath, 0);
        sequential.Write(out);
        EXPECT_EQ(out.ItemCount(), sequential.expected.size());
    }
    Workload parallel;
    {
        PackageWriter out(parallelPath, 4);
        EXPECT_EQ(out.CompressionThreads(), 4u);
        parallel.Write(out);
        EXPECT_EQ(out.ItemCount(), parallel.expected.size());
    }
    std::vector<Item> a = ReadZip(sequentialPath);
    std::vector<Item> b = ReadZip(parallelPath);
    ASSERT_EQ(a.size(), sequential.expected.size());
    ASSERT_EQ(b.size(), parallel.expected.size());
    for (std::size_t i = 0; i < a.size(); ++i) {
        EXPECT_EQ(a[i].name, sequential.expected[i].name) << i;
        EXPECT_EQ(b[i].name, a[i].name) << i;
        EXPECT_TRUE(a[i].content == sequential.expected[i].content) << a[i].name;
        EXPECT_TRUE(b[i].content == a[i].content) << b[i].name;
        EXPECT_EQ(a[i].method, sequential.expected[i].method) << a[i].name;
        EXPECT_EQ(b[i].method, a[i].method) << b[i].name;
    }
    EXPECT_TRUE(testpackages::PythonReads(sequentialPath, a.size()));
    EXPECT_TRUE(testpackages::PythonReads(parallelPath, b.size()));
}

TEST(ParallelCompression, ThousandsOfCopiesAndSmallItemsPassTheQueueBounds) {
    // Far more records than the queue holds, so the caller waits for room again and again.
    std::string target = testpackages::TempPath("many_copies.zip");
    Workload workload;
    auto package = SourcePackage::Open(workload.source, ReaderLimits{});
    const SourcePart* part = package->Find("/copied/a.xml");
    ASSERT_NE(part, nullptr);
    const std::string content = package->ReadMarkup(*part);
    const std::size_t kCopies = PackageWriter::kMaxQueuedRecords * 12;
    {
        PackageWriter out(target, 2);
        for (std::size_t i = 0; i < kCopies; ++i) {
            out.CopyRaw("copies/" + std::to_string(i) + ".xml", package, part->items[0]);
            if (i % 100 == 0) out.WriteBytes("written/" + std::to_string(i) + ".xml", "w", 6);
        }
        out.Finish();
        out.Commit();
    }
    std::vector<Item> items = ReadZip(target);
    ASSERT_EQ(items.size(), kCopies + (kCopies + 99) / 100);
    std::size_t copy = 0;
    for (const Item& item : items) {
        if (item.name.rfind("written/", 0) == 0) {
            EXPECT_EQ(item.name, "written/" + std::to_string(copy - 1) + ".xml");
            continue;
        }
        EXPECT_EQ(item.name, "copies/" + std::to_string(copy++) + ".xml");
        EXPECT_TRUE(item.content == content) << item.name;
    }
}

TEST(ParallelCompression, AReaderFailingMidItemStopsThePackageAndLeavesNoFile) {
    std::string target = testpackages::TempPath("reader_fails.zip");
    std::filesystem::remove(target);
    {
        PackageWriter out(target, 2);
        for (unsigned i = 0; i < 20; ++i)
            out.WriteBytes("p/" + std::to_string(i), Text(9000, i), 6);
        out.WriteBytes("big.xml", Text(PackageWriter::kChunkSize * 3, 5), 6);
        std::size_t served = 0;
        auto failing = [&](char* buffer, std::size_t size) -> std::size_t {
            if (served > PackageWriter::kChunkSize * 2) {
                throw JobError(ErrorKind::Filter, "reading part /broken.xml failed");
            }
            std::fill(buffer, buffer + size, 'x');
            served += size;
            return size;
        };
        try {
            out.Write("broken.xml", failing, 6, 0);
            ADD_FAILURE() << "the failing reader was not noticed";
        } catch (const JobError& error) {
            EXPECT_EQ(error.Kind(), ErrorKind::Filter);
        }
        // Half an item may be in the package: nothing more can be added or finished.
        EXPECT_THROW(out.WriteBytes("after.xml", "late", 6), JobError);
        EXPECT_THROW(out.Finish(), JobError);
        EXPECT_FALSE(testpackages::NothingLeftOf(target));  // the temporary file
    }
    EXPECT_TRUE(testpackages::NothingLeftOf(target));
}

TEST(ParallelCompression, AWriterDroppedWithItemsInFlightLeavesNoFile) {
    std::string target = testpackages::TempPath("dropped.zip");
    std::filesystem::remove(target);
    {
        PackageWriter out(target, 2);
        for (unsigned i = 0; i < 6; ++i) {
            out.WriteBytes("large/" + std::to_string(i), Noise(PackageWriter::kChunkSize + 1, i),
                           9);
        }
    }
    EXPECT_TRUE(testpackages::NothingLeftOf(target));
}

TEST(ParallelCompression, ACopyOfADamagedSourceItemFailsTheQueuedPackage) {
    std::string target = testpackages::TempPath("bad_copy.zip");
    std::filesystem::remove(target);
    Workload workload;
    auto package = SourcePackage::Open(workload.source, ReaderLimits{});
    ZipItem item = package->Find("/copied/a.xml")->items[0];
    item.compressedSize += 10;  // the source holds fewer bytes than this item claims
    {
        PackageWriter out(target, 2);
        out.WriteBytes("before.xml", Text(PackageWriter::kChunkSize * 2, 1), 6);
        bool failed = false;
        try {
            out.CopyRaw("copy.xml", package, item);  // queued behind the compressed item
            out.WriteBytes("after.xml", Text(1000, 2), 6);
            out.Finish();
        } catch (const JobError& error) {
            failed = true;
            EXPECT_NE(std::string(error.what()).find("truncated"), std::string::npos)
                << error.what();
        }
        EXPECT_TRUE(failed);
    }
    EXPECT_TRUE(testpackages::NothingLeftOf(target));
}

// Replaces the markup of every page, as a watermark filter does (every tenth page gets markup
// larger than two compression chunks), and optionally stops the job after `failAfter` pages.
class RewritingFilter final : public testfilters::PageEditingFilter {
public:
    explicit RewritingFilter(int failAfter) : m_failAfter(failAfter) {}

    static std::string Markup(int page) {
        std::string body = "<!-- rewritten page " + std::to_string(page) + " -->";
        if (page % 10 == 3) {
            body += "<!--" + Text(PackageWriter::kChunkSize * 2 + 999, page) + "-->";
        }
        return testpackages::Page(body);
    }

private:
    HRESULT EditPage(IXpsDocumentConsumer* consumer, IFixedPage* page, int number) override {
        if (number > m_failAfter && m_failAfter >= 0) return E_FAIL;
        std::string markup = Markup(number);
        CComPtr<IPrintWriteStream> stream;
        HRESULT hr = page->GetWriteStream(&stream);
        if (FAILED(hr)) return hr;
        for (std::size_t done = 0; done < markup.size();) {
            ULONG block = static_cast<ULONG>(std::min<std::size_t>(markup.size() - done, 65536));
            ULONG written = 0;
            if (FAILED(hr = stream->WriteBytes(markup.data() + done, block, &written))) return hr;
            done += written;
        }
        stream->Close();
        return consumer->SendFixedPage(page);
    }

    int m_failAfter;
};

FilterFactory Rewriting(int failAfter) {
    return [failAfter](IPrintPipelineFilter** filter) {
        *filter = new RewritingFilter(failAfter);
        return S_OK;
    };
}

TEST(ParallelCompression, AJobThatRewritesEveryPageKeepsThePagesInOrder) {
    const int kPages = 120;
    std::string input = testpackages::WriteZip("rewrite_in.xps", testpackages::SmallJob(kPages));
    std::string output = testpackages::TempPath("rewrite_out.xps");
    JobResult result = testfilters::RunWithFilter(Rewriting(-1), input, output);
    ASSERT_TRUE(result.succeeded) << result.error->what();
    EXPECT_EQ(result.pages, static_cast<std::uint64_t>(kPages));
    std::vector<Item> items = ReadZip(output);
    int next = 1;
    for (const Item& item : items) {
        if (item.name.rfind("Documents/1/Pages/", 0) != 0 ||
            item.name.find("_rels") != std::string::npos) {
            continue;
        }
        EXPECT_EQ(item.name, "Documents/1/Pages/" + std::to_string(next) + ".fpage");
        EXPECT_TRUE(item.content == RewritingFilter::Markup(next)) << item.name;
        EXPECT_EQ(item.method, ZIP_CM_DEFLATE) << item.name;
        ++next;
    }
    EXPECT_EQ(next, kPages + 1);
    // The host reads its own output back as a valid package listing every page.
    auto out = SourcePackage::Open(output, ReaderLimits{});
    EXPECT_NE(out->Find("/Documents/1/Pages/" + std::to_string(kPages) + ".fpage"), nullptr);
}

TEST(ParallelCompression, AJobStoppedMidWayWithPagesInFlightLeavesNoFile) {
    std::string input = testpackages::WriteZip("rewrite_fail_in.xps", testpackages::SmallJob(60));
    std::string output = testpackages::TempPath("rewrite_fail_out.xps");
    std::filesystem::remove(output);
    JobResult result = testfilters::RunWithFilter(Rewriting(45), input, output);
    EXPECT_FALSE(result.succeeded);
    ASSERT_TRUE(result.error.has_value());
    EXPECT_EQ(result.error->Kind(), ErrorKind::Filter);
    EXPECT_TRUE(testpackages::NothingLeftOf(output));
}

}  // namespace
