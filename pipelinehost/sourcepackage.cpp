// sourcepackage.cpp: the XPS job file: ZIP index (libzip), piece joining, content types,
// package relationships and bounded part streams.
#include "pipelinehost/sourcepackage.h"

#include <libxml/parser.h>
#include <sys/stat.h>
#include <zip.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>

#include "pipelinehost/hosterror.h"
#include "pipelinehost/iteminflater.h"
#include "pipelinehost/partname.h"
#include "pipelinehost/xpsmarkup.h"
#include "pipelinehost/xpsnames.h"
#include "platform/msxml/domtree.h"

namespace pipelinehost {

struct SourcePackage::ItemFile {
    zip_file_t* file = nullptr;
    const ZipItem* item = nullptr;
};

namespace {

std::string ZipErrorText(int code) {
    zip_error_t error;
    zip_error_init_with_code(&error, code);
    std::string text = zip_error_strerror(&error);
    zip_error_fini(&error);
    return text;
}

bool StartsLikeZip(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    char magic[4] = {};
    in.read(magic, 4);
    return in.gcount() == 4 && magic[0] == 'P' && magic[1] == 'K' &&
           ((magic[2] == 3 && magic[3] == 4) || (magic[2] == 5 && magic[3] == 6));
}

// Inflated reader over the items of one part, checking each item's declared size. Items
// inflate on the reading thread (ItemInflater); only their compressed bytes are read under the
// package's lock.
class SourcePartStream final : public PartStream {
public:
    SourcePartStream(std::shared_ptr<const SourcePackage> package, const SourcePart& part)
        : m_package(std::move(package)), m_part(part) {}
    ~SourcePartStream() override { CloseCurrent(); }

    std::size_t Read(void* buffer, std::size_t size) override {
        std::size_t total = 0;
        while (total < size && m_itemIndex < m_part.items.size()) {
            const ZipItem& item = m_part.items[m_itemIndex];
            if (!m_file) m_file = std::make_unique<ItemInflater>(*m_package, item);
            std::size_t got = m_file->Read(static_cast<char*>(buffer) + total, size - total);
            if (got == 0) {
                if (m_inItem != item.size) {
                    throw JobError(ErrorKind::NotZip,
                                   "ZIP item " + item.name + " is shorter than it declares");
                }
                CloseCurrent();
                ++m_itemIndex;
                m_inItem = 0;
                continue;
            }
            m_inItem += got;
            if (m_inItem > item.size) {
                throw JobError(ErrorKind::LimitExceeded,
                               "ZIP item " + item.name + " inflates beyond its declared size of " +
                                   std::to_string(item.size) + " bytes");
            }
            total += got;
            m_position += got;
        }
        return total;
    }

    std::uint64_t Position() const override { return m_position; }
    std::uint64_t Size() const override { return m_part.size; }

    void SeekTo(std::uint64_t position) override {
        if (position < m_position) {
            CloseCurrent();
            m_itemIndex = 0;
            m_inItem = 0;
            m_position = 0;
        }
        char scratch[16384];
        while (m_position < position) {
            std::size_t want = static_cast<std::size_t>(
                std::min<std::uint64_t>(sizeof scratch, position - m_position));
            if (Read(scratch, want) == 0) break;
        }
    }

private:
    void CloseCurrent() { m_file.reset(); }

    std::shared_ptr<const SourcePackage> m_package;
    const SourcePart& m_part;
    std::unique_ptr<ItemInflater> m_file;
    std::size_t m_itemIndex = 0;
    std::uint64_t m_inItem = 0;
    std::uint64_t m_position = 0;
};

class RawItemReader final : public SourcePackage::RawReader {
public:
    RawItemReader(std::shared_ptr<const SourcePackage> package, const ZipItem& item)
        : m_package(std::move(package)), m_file(m_package->OpenItem(item)) {}
    ~RawItemReader() override { m_package->CloseItem(*m_file); }
    std::size_t Read(void* buffer, std::size_t size) override {
        return m_package->ReadItem(*m_file, buffer, size);
    }

private:
    std::shared_ptr<const SourcePackage> m_package;
    std::unique_ptr<SourcePackage::ItemFile> m_file;
};

}  // namespace

SourcePackage::SourcePackage(std::string path, const ReaderLimits& limits)
    : m_path(std::move(path)), m_limits(limits) {}

SourcePackage::~SourcePackage() {
    if (m_zip != nullptr) zip_discard(m_zip);
}

std::shared_ptr<SourcePackage> SourcePackage::Open(const std::string& path,
                                                   const ReaderLimits& limits) {
    platform::msxml::EnsureLibxml();
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) {
        throw JobError(ErrorKind::InputMissing,
                       "cannot open " + path + ": " + std::strerror(errno));
    }
    if (!S_ISREG(info.st_mode)) {
        throw JobError(ErrorKind::InputMissing, path + " is not a regular file");
    }
    std::shared_ptr<SourcePackage> package(new SourcePackage(path, limits));
    int code = 0;
    package->m_zip = zip_open(path.c_str(), ZIP_RDONLY, &code);
    if (package->m_zip == nullptr) {
        if (code == ZIP_ER_OPEN || code == ZIP_ER_READ) {
            throw JobError(ErrorKind::InputMissing,
                           "cannot read " + path + ": " + ZipErrorText(code));
        }
        if (code == ZIP_ER_NOZIP && !StartsLikeZip(path)) {
            throw JobError(ErrorKind::NotZip, path + " is not a ZIP archive (an XPS job is one)");
        }
        throw JobError(ErrorKind::NotZip, path + " is a truncated or damaged ZIP archive (" +
                                              ZipErrorText(code) + ")");
    }
    package->Index();
    package->ReadContentTypes();
    package->FindStartPart();
    return package;
}

namespace {

void CheckPartSize(const std::string& name, std::uint64_t size, const ReaderLimits& limits) {
    if (size > limits.maxPartSize) {
        throw JobError(ErrorKind::LimitExceeded,
                       "part " + name + " declares " + std::to_string(size) +
                           " bytes, above the limit of " + std::to_string(limits.maxPartSize));
    }
}

// The central-directory entry `i`, refused when it is encrypted or compressed in a way the
// reader does not inflate; nothing for a directory entry.
std::optional<ZipItem> ReadZipItem(zip_t* zip, zip_int64_t i, const std::string& path) {
    zip_stat_t st;
    zip_stat_init(&st);
    if (zip_stat_index(zip, static_cast<zip_uint64_t>(i), 0, &st) != 0 || st.name == nullptr) {
        throw JobError(ErrorKind::NotZip, "cannot read the ZIP directory of " + path);
    }
    std::string itemName = st.name;
    if (!itemName.empty() && itemName.back() == '/') return std::nullopt;  // directory entry
    if (st.encryption_method != ZIP_EM_NONE) {
        throw JobError(ErrorKind::BadPackage, "ZIP item " + itemName + " is encrypted");
    }
    if (st.comp_method != ZIP_CM_STORE && st.comp_method != ZIP_CM_DEFLATE) {
        throw JobError(ErrorKind::BadPackage, "ZIP item " + itemName +
                                                  " uses an unsupported compression method (" +
                                                  std::to_string(st.comp_method) + ")");
    }
    ZipItem item;
    item.index = static_cast<std::uint64_t>(i);
    item.name = itemName;
    item.size = st.size;
    item.compressedSize = st.comp_size;
    item.crc = st.crc;
    item.method = st.comp_method;
    item.mtime = st.mtime;
    return item;
}

// One logical part from its pieces ([n].piece ... [n].last.piece), which must run from 0 without
// gaps or repeats and end with the last piece.
SourcePart JoinPieces(const std::vector<std::pair<PieceName, ZipItem>>& pieces,
                      const ReaderLimits& limits) {
    const std::string& name = pieces.front().first.partName;
    SourcePart part;
    part.name = name;
    part.pieced = true;
    for (std::size_t n = 0; n < pieces.size(); ++n) {
        const auto& [piece, item] = pieces[n];
        if (piece.number != n) {
            throw JobError(ErrorKind::BadPackage,
                           "piece " + item.name + " of part " + name +
                               " is out of order or duplicated (expected piece " +
                               std::to_string(n) + ")");
        }
        if (piece.last && n + 1 != pieces.size()) {
            throw JobError(ErrorKind::BadPackage,
                           "part " + name + " has pieces after its last piece " + item.name);
        }
        part.items.push_back(item);
        part.size += item.size;
    }
    if (!pieces.back().first.last) {
        throw JobError(ErrorKind::BadPackage, "part " + name +
                                                  " is incomplete: its last piece ([n].last.piece) "
                                                  "is missing");
    }
    CheckPartSize(name, part.size, limits);
    return part;
}

}  // namespace

void SourcePackage::Index() {
    zip_int64_t count = zip_get_num_entries(m_zip, 0);
    // Pieces are collected per logical part (key -> pieces, in central-directory order).
    std::map<std::string, std::vector<std::pair<PieceName, ZipItem>>> pieceSets;
    std::map<std::string, std::size_t> firstSeen;  // key -> order of first item
    std::vector<std::pair<std::size_t, SourcePart>> ordered;
    std::map<std::string, std::size_t> plainByKey;

    for (zip_int64_t i = 0; i < count; ++i) {
        std::optional<ZipItem> item = ReadZipItem(m_zip, i, m_path);
        if (!item) continue;
        std::string partName = PartNameFromItem(item->name);
        CheckPartSize(partName, item->size, m_limits);
        if (std::optional<PieceName> piece = ParsePieceName(partName)) {
            std::string key = PartKey(piece->partName);
            firstSeen.emplace(key, static_cast<std::size_t>(i));
            pieceSets[key].emplace_back(*piece, *item);
            continue;
        }
        std::string key = PartKey(partName);
        if (plainByKey.count(key) != 0) {
            throw JobError(ErrorKind::BadPackage, "the package holds two parts named " + partName +
                                                      " (names compare "
                                                      "without case)");
        }
        SourcePart part;
        part.name = partName;
        part.size = item->size;
        part.items.push_back(*item);
        plainByKey[key] = ordered.size();
        ordered.emplace_back(static_cast<std::size_t>(i), std::move(part));
    }

    for (auto& [key, pieces] : pieceSets) {
        if (plainByKey.count(key) != 0) {
            throw JobError(ErrorKind::BadPackage, "part " + pieces.front().first.partName +
                                                      " is stored both whole and as pieces");
        }
        ordered.emplace_back(firstSeen[key], JoinPieces(pieces, m_limits));
    }
    std::stable_sort(ordered.begin(), ordered.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    for (auto& [order, part] : ordered) {
        m_byKey[PartKey(part.name)] = m_parts.size();
        m_parts.push_back(std::move(part));
    }
}

void SourcePackage::ReadContentTypes() {
    const SourcePart* types = Find("/[Content_Types].xml");
    if (types == nullptr) {
        throw JobError(ErrorKind::BadPackage,
                       m_path + " is not an XPS package: it has no [Content_Types].xml");
    }
    ContentTypes parsed = ParseContentTypes(ReadMarkup(*types));
    m_defaults = std::move(parsed.defaults);
    m_overrides = std::move(parsed.overrides);
    for (SourcePart& part : m_parts) part.contentType = ContentTypeOf(part.name);
}

void SourcePackage::FindStartPart() {
    m_packageRels = ReadRelationships("/");
    if (Find("/_rels/.rels") == nullptr) {
        throw JobError(ErrorKind::BadPackage,
                       m_path +
                           " is not an XPS package: it has no package relationships "
                           "(_rels/.rels)");
    }
    for (const Relationship& rel : m_packageRels) {
        if (!xps::IsStartPart(rel.type)) continue;
        if (!m_startPart.empty()) {
            throw JobError(ErrorKind::BadPackage, m_path + " names more than one start part");
        }
        if (!rel.part) {
            throw JobError(ErrorKind::BadPackage, "the start part of " + m_path + " is external");
        }
        m_openXps = rel.type == xps::kOpenStartPart;
        const SourcePart* start = Find(*rel.part);
        if (start == nullptr) {
            throw JobError(ErrorKind::BadPackage, "the start part " + *rel.part + " of " + m_path +
                                                      " is missing from the package");
        }
        m_startPart = start->name;
    }
    if (m_startPart.empty()) {
        throw JobError(ErrorKind::BadPackage,
                       m_path +
                           " has no start part (no fixed representation relationship in "
                           "_rels/.rels)");
    }
}

const SourcePart* SourcePackage::Find(std::string_view partName) const {
    auto found = m_byKey.find(PartKey(partName));
    return found == m_byKey.end() ? nullptr : &m_parts[found->second];
}

const SourcePart& SourcePackage::Require(std::string_view partName,
                                         std::string_view referrer) const {
    const SourcePart* part = Find(partName);
    if (part == nullptr) {
        throw JobError(ErrorKind::BadPackage, std::string(referrer) + " refers to " +
                                                  std::string(partName) +
                                                  ", which is missing from the package");
    }
    return *part;
}

std::string SourcePackage::ContentTypeOf(std::string_view partName) const {
    auto over = m_overrides.find(PartKey(partName));
    if (over != m_overrides.end()) return over->second;
    auto def = m_defaults.find(PartExtension(partName));
    return def == m_defaults.end() ? std::string() : def->second;
}

std::unique_ptr<PartStream> SourcePackage::OpenPart(const SourcePart& part) const {
    return std::make_unique<SourcePartStream>(shared_from_this(), part);
}

std::string SourcePackage::ReadMarkup(const SourcePart& part) const {
    if (part.size > m_limits.maxMarkupSize) {
        throw JobError(ErrorKind::LimitExceeded, "part " + part.name + " declares " +
                                                     std::to_string(part.size) +
                                                     " bytes, above the markup limit of " +
                                                     std::to_string(m_limits.maxMarkupSize));
    }
    std::string bytes(static_cast<std::size_t>(part.size), '\0');
    std::unique_ptr<PartStream> stream = OpenPart(part);
    std::size_t done = 0;
    while (done < bytes.size()) {
        std::size_t got = stream->Read(bytes.data() + done, bytes.size() - done);
        if (got == 0) break;
        done += got;
    }
    char extra;
    if (stream->Read(&extra, 1) != 0) {
        throw JobError(ErrorKind::LimitExceeded, "part " + part.name + " inflates beyond its size");
    }
    bytes.resize(done);
    return bytes;
}

std::vector<Relationship> SourcePackage::ReadRelationships(std::string_view sourcePartName) const {
    std::string relsName = RelationshipsPartName(sourcePartName);
    const SourcePart* rels = Find(relsName);
    if (rels == nullptr) return {};
    return ParseRelationships(ReadMarkup(*rels), sourcePartName == "/" ? "/" : sourcePartName,
                              rels->name);
}

std::unique_ptr<SourcePackage::RawReader> SourcePackage::OpenRaw(const ZipItem& item) const {
    return std::make_unique<RawItemReader>(shared_from_this(), item);
}

std::unique_ptr<SourcePackage::ItemFile> SourcePackage::OpenItem(const ZipItem& item) const {
    std::lock_guard<std::mutex> lock(m_zipMutex);
    auto file = std::make_unique<ItemFile>();
    file->item = &item;
    file->file = zip_fopen_index(m_zip, item.index, ZIP_FL_COMPRESSED);
    if (file->file == nullptr) {
        throw JobError(ErrorKind::NotZip,
                       "cannot open ZIP item " + item.name + ": " + zip_strerror(m_zip));
    }
    return file;
}

std::size_t SourcePackage::ReadItem(ItemFile& file, void* buffer, std::size_t size) const {
    std::lock_guard<std::mutex> lock(m_zipMutex);
    zip_int64_t got = zip_fread(file.file, buffer, size);
    if (got < 0) {
        throw JobError(ErrorKind::NotZip, "ZIP item " + file.item->name +
                                              " is damaged: " + zip_file_strerror(file.file));
    }
    return static_cast<std::size_t>(got);
}

void SourcePackage::CloseItem(ItemFile& file) const {
    std::lock_guard<std::mutex> lock(m_zipMutex);
    if (file.file != nullptr) zip_fclose(file.file);
    file.file = nullptr;
}

}  // namespace pipelinehost
