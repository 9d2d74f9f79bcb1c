// sourcepackage.h: an XPS job file opened for reading. It indexes the ZIP's central directory
// once (libzip), joins interleaved piece items into logical parts, reads the content types and
// the package relationships, and opens part content lazily: inflated with a bound on the
// inflated size, or as the raw compressed bytes of one ZIP item for copying. One package is
// shared by every part object and thread of a job; reading compressed bytes is serialised
// inside, inflating is not (each stream inflates on the thread that reads it).
#pragma once

#include <cstdint>
#include <ctime>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "pipelinehost/hosterror.h"

struct zip;

namespace pipelinehost {

struct ReaderLimits {
    // Inflated bytes one part may have; a part that declares or inflates to more is rejected.
    std::uint64_t maxPartSize = std::uint64_t{1} << 30;
    // Inflated bytes of the XML parts the host parses whole (relationships, content types,
    // fixed document sequences and fixed documents).
    std::uint64_t maxMarkupSize = std::uint64_t{64} << 20;
    // Nesting of remote resource dictionaries followed when collecting a page's resources.
    unsigned maxDictionaryDepth = 8;
};

struct ZipItem {
    std::uint64_t index = 0;
    std::string name;  // as stored in the ZIP
    std::uint64_t size = 0;
    std::uint64_t compressedSize = 0;
    std::uint32_t crc = 0;
    std::uint16_t method = 0;
    std::time_t mtime = 0;
};

struct SourcePart {
    std::string name;            // "/Documents/1/Pages/1.fpage", spelled as in the package
    std::vector<ZipItem> items;  // the single item, or the pieces in order
    bool pieced = false;
    std::uint64_t size = 0;  // declared inflated size, all pieces together
    std::string contentType;
};

struct Relationship {
    std::string id;
    std::string type;
    std::string target;  // as written
    bool external = false;
    std::optional<std::string> part;  // resolved part name for internal targets
};

// Sequential inflated reader over one part (across its pieces).
class PartStream {
public:
    virtual ~PartStream() = default;
    // Reads up to size bytes; 0 at the end. Throws JobError on damaged data or a broken bound.
    virtual std::size_t Read(void* buffer, std::size_t size) = 0;
    virtual std::uint64_t Position() const = 0;
    virtual std::uint64_t Size() const = 0;
    // Moves to an absolute position (backwards by reading again from the start).
    virtual void SeekTo(std::uint64_t position) = 0;
};

class SourcePackage : public std::enable_shared_from_this<SourcePackage> {
public:
    // Opens and indexes the job; throws JobError (InputMissing, NotZip, BadPackage,
    // LimitExceeded) naming the cause.
    static std::shared_ptr<SourcePackage> Open(const std::string& path, const ReaderLimits& limits);
    ~SourcePackage();
    SourcePackage(const SourcePackage&) = delete;
    SourcePackage& operator=(const SourcePackage&) = delete;

    const std::string& Path() const { return m_path; }
    const ReaderLimits& Limits() const { return m_limits; }
    const std::vector<SourcePart>& Parts() const { return m_parts; }
    const SourcePart* Find(std::string_view partName) const;
    const SourcePart& Require(std::string_view partName, std::string_view referrer) const;

    // The content type of a part by its Override, else by the Default of its extension.
    std::string ContentTypeOf(std::string_view partName) const;

    std::unique_ptr<PartStream> OpenPart(const SourcePart& part) const;
    // Reads a whole part that the host parses (bounded by maxMarkupSize).
    std::string ReadMarkup(const SourcePart& part) const;
    // The relationships whose source is the given part ("/" for the package); empty when the
    // part has no relationships part.
    std::vector<Relationship> ReadRelationships(std::string_view sourcePartName) const;

    const std::vector<Relationship>& PackageRelationships() const { return m_packageRels; }

    // Where errors met while filters read this package's parts are recorded (first wins).
    void SetStatus(std::shared_ptr<JobStatus> status) { m_status = std::move(status); }
    void Report(const JobError& error) const {
        if (m_status) m_status->Fail(error);
    }
    const std::string& StartPart() const { return m_startPart; }
    bool OpenXps() const { return m_openXps; }

    // Raw access to one ZIP item's compressed bytes (for copying without re-compressing).
    class RawReader {
    public:
        virtual ~RawReader() = default;
        virtual std::size_t Read(void* buffer, std::size_t size) = 0;
    };
    std::unique_ptr<RawReader> OpenRaw(const ZipItem& item) const;

    // Low-level access to an item's compressed bytes, used by the raw readers (serialised: the
    // package's one libzip handle is not shared between threads).
    struct ItemFile;
    std::unique_ptr<ItemFile> OpenItem(const ZipItem& item) const;
    std::size_t ReadItem(ItemFile& file, void* buffer, std::size_t size) const;
    void CloseItem(ItemFile& file) const;

private:
    SourcePackage(std::string path, const ReaderLimits& limits);
    void Index();
    void ReadContentTypes();
    void FindStartPart();

    std::string m_path;
    ReaderLimits m_limits;
    zip* m_zip = nullptr;
    mutable std::mutex m_zipMutex;
    std::vector<SourcePart> m_parts;
    std::unordered_map<std::string, std::size_t> m_byKey;  // part key -> index in m_parts
    std::map<std::string, std::string> m_defaults;         // extension -> content type
    std::map<std::string, std::string> m_overrides;        // part key -> content type
    std::vector<Relationship> m_packageRels;
    std::string m_startPart;
    bool m_openXps = false;
    std::shared_ptr<JobStatus> m_status;
};

}  // namespace pipelinehost
