// packagewriter.cpp: streaming ZIP output through minizip, raw copies included.
#include "pipelinehost/packagewriter.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <vector>

#include <minizip/zip.h>
#include <zlib.h>

#include "pipelinehost/hosterror.h"

namespace pipelinehost {
namespace {

constexpr std::uint64_t kZip64Threshold = 0xFFFFFFFFull;

zip_fileinfo FileInfo(std::time_t when) {
    zip_fileinfo info{};
    std::tm local{};
    if (when > 0 && localtime_r(&when, &local) != nullptr && local.tm_year >= 80) {
        info.tmz_date.tm_sec = static_cast<uInt>(local.tm_sec);
        info.tmz_date.tm_min = static_cast<uInt>(local.tm_min);
        info.tmz_date.tm_hour = static_cast<uInt>(local.tm_hour);
        info.tmz_date.tm_mday = static_cast<uInt>(local.tm_mday);
        info.tmz_date.tm_mon = static_cast<uInt>(local.tm_mon);
        info.tmz_date.tm_year = static_cast<uInt>(local.tm_year + 1900);
    } else {
        info.tmz_date.tm_mday = 1;
        info.tmz_date.tm_year = 1980;
    }
    return info;
}

[[noreturn]] void Fail(const std::string& what, const std::string& target) {
    throw JobError(ErrorKind::Output, "cannot write " + target + ": " + what);
}

}  // namespace

PackageWriter::PackageWriter(std::string target) : m_target(std::move(target)) {
    std::filesystem::path path(m_target);
    std::filesystem::path dir = path.parent_path();
    if (dir.empty()) dir = ".";
    std::string pattern = (dir / ("." + path.filename().string() + ".XXXXXX")).string();
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    int fd = ::mkstemp(name.data());
    if (fd < 0)
        Fail(std::string("cannot create a temporary file in ") + dir.string() + " (" +
                 std::strerror(errno) + ")",
             m_target);
    ::close(fd);
    m_temporary = name.data();
    m_zip = zipOpen64(m_temporary.c_str(), APPEND_STATUS_CREATE);
    if (m_zip == nullptr) {
        ::unlink(m_temporary.c_str());
        Fail("cannot open the temporary file", m_target);
    }
}

PackageWriter::~PackageWriter() {
    if (!m_committed) Discard();
}

void PackageWriter::Discard() {
    if (m_zip != nullptr) {
        zipClose(m_zip, nullptr);
        m_zip = nullptr;
    }
    if (!m_temporary.empty()) {
        ::unlink(m_temporary.c_str());
        m_temporary.clear();
    }
}

void PackageWriter::CopyRaw(const std::string& itemName, const SourcePackage& package,
                            const ZipItem& item) {
    if (m_zip == nullptr || m_finished) Fail("the package is already finished", m_target);
    zip_fileinfo info = FileInfo(item.mtime);
    int zip64 = (item.size >= kZip64Threshold || item.compressedSize >= kZip64Threshold) ? 1 : 0;
    int method = item.method == 0 ? 0 : Z_DEFLATED;
    if (zipOpenNewFileInZip4_64(m_zip, itemName.c_str(), &info, nullptr, 0, nullptr, 0, nullptr,
                                method, Z_DEFAULT_COMPRESSION, 1, -MAX_WBITS, DEF_MEM_LEVEL,
                                Z_DEFAULT_STRATEGY, nullptr, 0, 0, 0, zip64) != ZIP_OK) {
        Fail("cannot add " + itemName, m_target);
    }
    std::unique_ptr<SourcePackage::RawReader> raw = package.OpenRaw(item);
    std::vector<char> buffer(1 << 16);
    std::uint64_t copied = 0;
    for (;;) {
        std::size_t got = raw->Read(buffer.data(), buffer.size());
        if (got == 0) break;
        copied += got;
        if (zipWriteInFileInZip(m_zip, buffer.data(), static_cast<unsigned>(got)) != ZIP_OK) {
            Fail("write error in " + itemName, m_target);
        }
    }
    if (copied != item.compressedSize) {
        throw JobError(ErrorKind::NotZip, "ZIP item " + item.name + " is truncated");
    }
    if (zipCloseFileInZipRaw64(m_zip, item.size, item.crc) != ZIP_OK) {
        Fail("cannot close " + itemName, m_target);
    }
    ++m_items;
}

void PackageWriter::Write(const std::string& itemName, const Reader& read, int level,
                          std::uint64_t sizeHint) {
    if (m_zip == nullptr || m_finished) Fail("the package is already finished", m_target);
    zip_fileinfo info = FileInfo(0);
    int zip64 = sizeHint >= kZip64Threshold ? 1 : 0;
    int method = level == 0 ? 0 : Z_DEFLATED;
    if (zipOpenNewFileInZip4_64(m_zip, itemName.c_str(), &info, nullptr, 0, nullptr, 0, nullptr,
                                method, level == 0 ? Z_DEFAULT_COMPRESSION : level, 0, -MAX_WBITS,
                                DEF_MEM_LEVEL, Z_DEFAULT_STRATEGY, nullptr, 0, 0, 0,
                                zip64) != ZIP_OK) {
        Fail("cannot add " + itemName, m_target);
    }
    std::vector<char> buffer(1 << 16);
    for (;;) {
        std::size_t got = read(buffer.data(), buffer.size());
        if (got == 0) break;
        if (zipWriteInFileInZip(m_zip, buffer.data(), static_cast<unsigned>(got)) != ZIP_OK) {
            Fail("write error in " + itemName, m_target);
        }
    }
    if (zipCloseFileInZip(m_zip) != ZIP_OK) Fail("cannot close " + itemName, m_target);
    ++m_items;
}

void PackageWriter::WriteBytes(const std::string& itemName, std::string_view bytes, int level) {
    std::size_t offset = 0;
    Write(
        itemName,
        [&](char* buffer, std::size_t size) {
            std::size_t count = std::min(size, bytes.size() - offset);
            std::memcpy(buffer, bytes.data() + offset, count);
            offset += count;
            return count;
        },
        level, bytes.size());
}

void PackageWriter::Finish() {
    if (m_finished) return;
    if (m_zip == nullptr) Fail("the package is already closed", m_target);
    int result = zipClose(m_zip, nullptr);
    m_zip = nullptr;
    if (result != ZIP_OK) Fail("cannot write the ZIP directory", m_target);
    m_finished = true;
}

void PackageWriter::Commit() {
    if (!m_finished) Finish();
    if (std::rename(m_temporary.c_str(), m_target.c_str()) != 0) {
        Fail(std::string("cannot rename the finished package into place (") + std::strerror(errno) +
                 ")",
             m_target);
    }
    // mkstemp creates the file 0600; give the output the usual permissions.
    mode_t mask = ::umask(0);
    ::umask(mask);
    ::chmod(m_target.c_str(), 0666 & ~mask);
    m_temporary.clear();
    m_committed = true;
}

}  // namespace pipelinehost
