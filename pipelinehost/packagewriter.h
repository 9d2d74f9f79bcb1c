// packagewriter.h: the output ZIP, written as the job goes (minizip). Items are either copied
// from a source package as their compressed bytes (no inflate, no deflate) or written from
// content the host inflated or a filter produced. Everything goes to a temporary file beside
// the target; Commit renames it over the target, and a writer destroyed without Commit removes
// it, so a failed job leaves nothing behind.
#pragma once

#include <cstdint>
#include <ctime>
#include <functional>
#include <string>
#include <string_view>

#include "pipelinehost/sourcepackage.h"

namespace pipelinehost {

class PackageWriter {
public:
    // Creates the temporary file; throws JobError(Output).
    explicit PackageWriter(std::string target);
    ~PackageWriter();
    PackageWriter(const PackageWriter&) = delete;
    PackageWriter& operator=(const PackageWriter&) = delete;

    // Copies one ZIP item of the source as it is stored, under a new item name.
    void CopyRaw(const std::string& itemName, const SourcePackage& package, const ZipItem& item);

    // Writes an item from a reader (returns bytes read, 0 at the end). level: 0 stores, 1-9
    // deflates. sizeHint: the expected size when known (chooses Zip64 for large items).
    using Reader = std::function<std::size_t(char* buffer, std::size_t size)>;
    void Write(const std::string& itemName, const Reader& read, int level, std::uint64_t sizeHint);
    void WriteBytes(const std::string& itemName, std::string_view bytes, int level);

    // Writes the central directory; no more items after this.
    void Finish();
    // Renames the finished file over the target.
    void Commit();

    const std::string& Target() const { return m_target; }
    std::uint64_t ItemCount() const { return m_items; }

private:
    void Discard();

    std::string m_target;
    std::string m_temporary;
    void* m_zip = nullptr;
    bool m_finished = false;
    bool m_committed = false;
    std::uint64_t m_items = 0;
};

}  // namespace pipelinehost
