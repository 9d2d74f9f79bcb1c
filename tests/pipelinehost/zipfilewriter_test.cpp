// Tests of the ZIP container writer: items read back by libzip and Python's zipfile with their
// times and methods, Zip64 local headers, Zip64 end records past 65,535 items, headers patched
// both in the buffer and in the file, and misuse refused.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <zip.h>
#include <zlib.h>

#include <cstdlib>
#include <ctime>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "pipelinehost/zipfilewriter.h"
#include "testpackages.h"

namespace {

using pipelinehost::ZipFileWriter;
using testpackages::Item;
using testpackages::PythonReads;
using testpackages::ReadZip;

std::uint32_t Crc(const std::string& bytes) {
    return static_cast<std::uint32_t>(
        crc32(0, reinterpret_cast<const Bytef*>(bytes.data()), static_cast<uInt>(bytes.size())));
}

std::string Deflate(const std::string& bytes) {
    z_stream stream{};
    deflateInit2(&stream, 6, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY);
    std::string out(deflateBound(&stream, static_cast<uLong>(bytes.size())), '\0');
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
    stream.avail_in = static_cast<uInt>(bytes.size());
    stream.next_out = reinterpret_cast<Bytef*>(out.data());
    stream.avail_out = static_cast<uInt>(out.size());
    EXPECT_EQ(deflate(&stream, Z_FINISH), Z_STREAM_END);
    out.resize(stream.total_out);
    deflateEnd(&stream);
    return out;
}

class ZipFile {
public:
    explicit ZipFile(const std::string& name) : m_path(testpackages::TempPath(name)) {
        m_fd = ::open(m_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    }
    ~ZipFile() {
        if (m_fd >= 0) ::close(m_fd);
    }
    int Fd() const { return m_fd; }
    const std::string& Path() const { return m_path; }

private:
    std::string m_path;
    int m_fd = -1;
};

TEST(ZipFileWriter, ItemsReadBackWithTheirMethodsTimesAndContent) {
    // Headers filled in afterwards, or (streaming) data descriptors after each item's data.
    for (const bool streaming : {false, true}) {
        SCOPED_TRACE(streaming ? "streaming" : "headers filled in");
        ZipFile file(streaming ? "streamed.zip" : "container.zip");
        ASSERT_GE(file.Fd(), 0);
        const std::string text = testpackages::Page(std::string(5000, 'a'));
        const std::string large(600 * 1024, 'b');  // larger than the write buffer
        std::tm when{};                            // 2021-06-14 09:30:42 local time
        std::tie(when.tm_year, when.tm_mon, when.tm_mday, when.tm_hour, when.tm_min, when.tm_sec,
                 when.tm_isdst) = std::make_tuple(121, 5, 14, 9, 30, 42, -1);
        const std::time_t mtime = std::mktime(&when);
        {
            ZipFileWriter zip(file.Fd(), streaming);
            zip.Begin({"stored.txt", 0, 0, mtime, false});
            zip.Append("hello", 5);
            zip.End(Crc("hello"), 5);
            std::string deflated = Deflate(text);
            zip.Begin({"Documents/1/Pages/1.fpage", 8, 9, 0, false});
            zip.Append(deflated.data(), deflated.size() / 2);
            zip.Append(deflated.data() + deflated.size() / 2,
                       deflated.size() - deflated.size() / 2);
            zip.End(Crc(text), text.size());
            zip.Begin({"large.bin", 0, 0, 0, true});  // Zip64 local header
            zip.Append(large.data(), large.size());
            zip.End(Crc(large), large.size());
            zip.Begin({"empty", 0, 0, 0, false});
            zip.End(Crc(""), 0);
            EXPECT_EQ(zip.ItemCount(), 4u);
            zip.Finish();
        }
        std::vector<Item> items = ReadZip(file.Path());
        ASSERT_EQ(items.size(), 4u);
        EXPECT_EQ(items[0].name, "stored.txt");
        EXPECT_EQ(items[0].content, "hello");
        EXPECT_EQ(items[0].method, ZIP_CM_STORE);
        EXPECT_EQ(items[1].name, "Documents/1/Pages/1.fpage");
        EXPECT_TRUE(items[1].content == text);
        EXPECT_EQ(items[1].method, ZIP_CM_DEFLATE);
        EXPECT_TRUE(items[2].content == large);
        EXPECT_EQ(items[3].content, "");
        int error = 0;
        zip_t* archive = zip_open(file.Path().c_str(), ZIP_RDONLY, &error);
        ASSERT_NE(archive, nullptr);
        zip_stat_t stat;
        ASSERT_EQ(zip_stat_index(archive, 0, 0, &stat), 0);
        EXPECT_EQ(stat.mtime, mtime);  // DOS time keeps even seconds
        ASSERT_EQ(zip_stat_index(archive, 3, 0, &stat), 0);
        std::tm unknown{};
        std::time_t dosEpoch = stat.mtime;
        localtime_r(&dosEpoch, &unknown);
        EXPECT_EQ(unknown.tm_year, 80);  // no time: 1980-01-01
        zip_close(archive);
        EXPECT_TRUE(PythonReads(file.Path(), 4));
    }
}

TEST(ZipFileWriter, MoreThan65535ItemsGetZip64EndRecords) {
    ZipFile file("many_items.zip");
    ASSERT_GE(file.Fd(), 0);
    const std::size_t kItems = 70000;
    {
        ZipFileWriter zip(file.Fd());
        for (std::size_t i = 0; i < kItems; ++i) {
            std::string content = std::to_string(i);
            zip.Begin({"i/" + std::to_string(i), 0, 0, 0, false});
            zip.Append(content.data(), content.size());
            zip.End(Crc(content), content.size());
        }
        zip.Finish();
    }
    int error = 0;
    zip_t* archive = zip_open(file.Path().c_str(), ZIP_RDONLY | ZIP_CHECKCONS, &error);
    ASSERT_NE(archive, nullptr) << error;
    EXPECT_EQ(zip_get_num_entries(archive, 0), static_cast<zip_int64_t>(kItems));
    zip_stat_t stat;
    ASSERT_EQ(zip_stat_index(archive, kItems - 1, 0, &stat), 0);
    EXPECT_EQ(std::string(stat.name), "i/" + std::to_string(kItems - 1));
    zip_file_t* last = zip_fopen_index(archive, kItems - 1, 0);
    ASSERT_NE(last, nullptr);
    char buffer[16];
    zip_int64_t got = zip_fread(last, buffer, sizeof buffer);
    EXPECT_EQ(std::string(buffer, static_cast<std::size_t>(got)), std::to_string(kItems - 1));
    zip_fclose(last);
    zip_close(archive);
    EXPECT_TRUE(PythonReads(file.Path(), kItems));
}

TEST(ZipFileWriter, MisuseAndWriteErrorsAreRefused) {
    ZipFile file("misuse.zip");
    ZipFileWriter zip(file.Fd());
    EXPECT_THROW(zip.Append("x", 1), std::logic_error);
    EXPECT_THROW(zip.End(0, 0), std::logic_error);
    zip.Begin({"a", 0, 0, 0, false});
    EXPECT_THROW(zip.Begin({"b", 0, 0, 0, false}), std::logic_error);
    EXPECT_THROW(zip.Finish(), std::logic_error);
    EXPECT_THROW(zip.Begin({std::string(70000, 'n'), 0, 0, 0, false}), std::logic_error);
    zip.End(Crc(""), 0);
    EXPECT_THROW(zip.Begin({std::string(70000, 'n'), 0, 0, 0, false}), std::runtime_error);

    // A descriptor that cannot be written: the error surfaces at the latest when flushing.
    ZipFile target("readonly.zip");
    int fd = ::open(target.Path().c_str(), O_RDONLY);
    ASSERT_GE(fd, 0);
    ZipFileWriter readOnly(fd);
    readOnly.Begin({"a", 0, 0, 0, false});
    readOnly.End(Crc(""), 0);
    EXPECT_THROW(readOnly.Finish(), std::runtime_error);
    ::close(fd);
}

}  // namespace
