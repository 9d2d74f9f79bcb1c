// pagesizedictionary.h: the core library's page size dictionary as the filter library uses it:
// every Print Schema PageMediaSize keyword and the driver's own page sizes, each with its size,
// its data-model value id and whether its name is a predefined Print Schema keyword. The data
// and the lookups live in the core library (zoruncore), reached through the delay loader: the
// first PageSizeDictionary of a process opens it, and a missing core library raises
// ExceptionDelayLoadDllLoadFailure from the constructor.
#pragma once

#include <cstddef>
#include <vector>

#include "platform/com/wintypes.h"
#include "support/utilities/cxstring.h"
#include "support/utilities/datamodelids.h"
#include "support/utilities/dimension.h"

// Localised product texts. The dictionary asks it for the display names of its entries.
class ProductStringLoader {
public:
    virtual ~ProductStringLoader();
    // The display text of a value id into `text`; false when the product has none.
    virtual bool LoadProductString(DataModelIds::tagValueEnum value, CXString& text) const = 0;
};

// A data-model value id.
class ValueId {
public:
    explicit ValueId(DataModelIds::tagValueEnum value = DataModelIds::ValueUnspecified)
        : m_value(value) {}
    DataModelIds::tagValueEnum GetValueEnum() const { return m_value; }
    friend bool operator==(const ValueId& a, const ValueId& b) { return a.m_value == b.m_value; }

private:
    DataModelIds::tagValueEnum m_value;
};

class PageSizeDictionaryEntry {
public:
    ValueId GetValueId() const { return m_valueId; }
    // The PageMediaSize option name (the keyword without a prefix, e.g. "ISOA4").
    CXString GetMsPageMediaSizeOptionName() const { return m_optionName; }
    // True for a Print Schema keyword (public namespace), false for the driver's own name
    // (private namespace).
    bool IsPredefinedMsOptionName() const { return m_predefined; }
    // Width and height in micrometres (unit 8); 0 where the size has none (custom sizes, the
    // length of roll media).
    Dimension GetWidth() const;
    Dimension GetHeight() const;
    int GetWidthMicrons() const { return m_widthMicrons; }
    int GetHeightMicrons() const { return m_heightMicrons; }
    // The devmode paper-size number (DMPAPER_*), 0 when there is none.
    WORD GetDevmodePaperId() const { return m_devmodePaperId; }
    bool IsCustomSize() const { return m_custom; }
    bool IsRoll() const { return m_roll; }
    // The product's display name, or the option name when the dictionary has no string loader
    // or the loader has no text for it.
    CXString GetDisplayName() const;

private:
    friend class PageSizeDictionary;
    ValueId m_valueId;
    CXString m_optionName;
    bool m_predefined = false;
    bool m_custom = false;
    bool m_roll = false;
    int m_widthMicrons = 0;
    int m_heightMicrons = 0;
    WORD m_devmodePaperId = 0;
    const ProductStringLoader* m_loader = nullptr;
};

class PageSizeDictionary {
public:
    // `loader` may be null; when given it must outlive the dictionary.
    explicit PageSizeDictionary(ProductStringLoader* loader);
    ~PageSizeDictionary();
    PageSizeDictionary(const PageSizeDictionary&) = delete;
    PageSizeDictionary& operator=(const PageSizeDictionary&) = delete;

    // The entries of that size, in dictionary order. Sizes are compared in tenths of a
    // millimetre, as the driver's form records hold them: both the entries' micrometres and the
    // asked lengths are cut to whole tenths. A height of 0 finds roll media of the width; a
    // width of 0 or less, a negative height or a length that is not a number finds nothing.
    std::vector<const PageSizeDictionaryEntry*> GetPageSizeEntryRefs(const Dimension& width,
                                                                     const Dimension& height) const;
    // The entry of a value id / option name (exact), or null.
    const PageSizeDictionaryEntry* GetPageSizeEntryRef(const ValueId& valueId) const;
    const PageSizeDictionaryEntry* GetPageSizeEntryRefByOptionName(const wchar_t* name) const;

    std::size_t GetEntryCount() const { return m_entries.size(); }
    const PageSizeDictionaryEntry& GetEntry(std::size_t index) const { return m_entries[index]; }

private:
    std::vector<PageSizeDictionaryEntry> m_entries;
};
