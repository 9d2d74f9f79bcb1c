// pagesizedictionary.cpp: the C++ view of the core library's page size table: copies the
// entries once and asks the core library for the lookups.

#include "utilitiesstaticlib/pagesizedictionary.h"

#include <cmath>
#include <limits>

#include "utilitiesstaticlib/corelibrary.h"

namespace {

// A length in whole tenths of a millimetre (cut, with a margin for binary fractions such as
// 2159.0 arriving as 2158.9999999); -1 for a negative length or one that is not a number.
int32_t ToTenthsOfMillimetre(const Dimension& length) {
    double tenths = length.GetDoubleValue(Dimension::TenthsOfMillimeter);
    if (!std::isfinite(tenths) || tenths < 0) return -1;
    tenths = std::floor(tenths + 1e-6);
    if (tenths > std::numeric_limits<int32_t>::max()) return -1;
    return static_cast<int32_t>(tenths);
}

}  // namespace

ProductStringLoader::~ProductStringLoader() = default;

Dimension PageSizeDictionaryEntry::GetWidth() const {
    return Dimension(m_widthMicrons, Dimension::Microns);
}

Dimension PageSizeDictionaryEntry::GetHeight() const {
    return Dimension(m_heightMicrons, Dimension::Microns);
}

CXString PageSizeDictionaryEntry::GetDisplayName() const {
    CXString text;
    if (m_loader != nullptr && m_loader->LoadProductString(m_valueId.GetValueEnum(), text)) {
        return text;
    }
    return m_optionName;
}

PageSizeDictionary::PageSizeDictionary(ProductStringLoader* loader) {
    const ZorunCoreApi& api = CoreLibrary::GetApi();
    uint32_t count = api.PageSizeCount();
    m_entries.reserve(count);
    for (uint32_t i = 0; i < count; ++i) {
        const ZorunCorePageSize* size = api.PageSizeAt(i);
        PageSizeDictionaryEntry entry;
        entry.m_valueId = ValueId(static_cast<DataModelIds::tagValueEnum>(size->valueId));
        entry.m_optionName = size->optionName;
        entry.m_predefined = (size->flags & ZORUNCORE_PAGESIZE_PREDEFINED) != 0;
        entry.m_custom = (size->flags & ZORUNCORE_PAGESIZE_CUSTOM) != 0;
        entry.m_roll = (size->flags & ZORUNCORE_PAGESIZE_ROLL) != 0;
        entry.m_widthMicrons = size->widthMicrons;
        entry.m_heightMicrons = size->heightMicrons;
        entry.m_devmodePaperId = static_cast<WORD>(size->devmodePaperId);
        entry.m_loader = loader;
        m_entries.push_back(std::move(entry));
    }
}

PageSizeDictionary::~PageSizeDictionary() = default;

std::vector<const PageSizeDictionaryEntry*> PageSizeDictionary::GetPageSizeEntryRefs(
    const Dimension& width, const Dimension& height) const {
    std::vector<const PageSizeDictionaryEntry*> found;
    int32_t w = ToTenthsOfMillimetre(width);
    int32_t h = ToTenthsOfMillimetre(height);
    if (w <= 0 || h < 0) return found;
    const ZorunCoreApi& api = CoreLibrary::GetApi();
    std::vector<uint32_t> indices(8);
    uint32_t count =
        api.FindPageSizesBySize(w, h, indices.data(), static_cast<uint32_t>(indices.size()));
    if (count > indices.size()) {
        indices.resize(count);
        count = api.FindPageSizesBySize(w, h, indices.data(), count);
    }
    for (uint32_t i = 0; i < count && i < indices.size(); ++i) {
        if (indices[i] < m_entries.size()) found.push_back(&m_entries[indices[i]]);
    }
    return found;
}

const PageSizeDictionaryEntry* PageSizeDictionary::GetPageSizeEntryRef(
    const ValueId& valueId) const {
    int32_t index = CoreLibrary::GetApi().FindPageSizeByValueId(valueId.GetValueEnum());
    return index >= 0 && static_cast<std::size_t>(index) < m_entries.size() ? &m_entries[index]
                                                                            : nullptr;
}

const PageSizeDictionaryEntry* PageSizeDictionary::GetPageSizeEntryRefByOptionName(
    const wchar_t* name) const {
    if (name == nullptr) return nullptr;
    int32_t index = CoreLibrary::GetApi().FindPageSizeByOptionName(name);
    return index >= 0 && static_cast<std::size_t>(index) < m_entries.size() ? &m_entries[index]
                                                                            : nullptr;
}
