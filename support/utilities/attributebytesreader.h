// attributebytesreader.h: AttributeBytesReader, typed reads of the driver's settings from an
// attribute list. Every read names a feature id and gives the caller's default when the list has
// no attribute of that feature, or has one of another type (an integer read of an option
// attribute, say): reads never fail.
//
// The list read is the one GetAttributeBytesIndexedListRef() returns. This class keeps a list of
// its own for it (SetAttributeBytesIndexedList); classes that build the list from somewhere else
// (the driver data in a PrintTicket) override the virtual functions, which is why the reads are
// not const: asking for the list may build it.
//
// Each read also exists as a static function over a given list, for nested lists taken out with
// GetCollection.
#pragma once

#include "support/utilities/attributebytes.h"
#include "support/utilities/cxstring.h"
#include "support/utilities/datamodelids.h"
#include "support/utilities/dimension.h"

class AttributeBytesReader {
public:
    AttributeBytesReader();
    explicit AttributeBytesReader(const AttributeBytesIndexedList& list);
    AttributeBytesReader(const AttributeBytesReader& other);
    AttributeBytesReader& operator=(const AttributeBytesReader& other);
    virtual ~AttributeBytesReader();

    // The list the reads use; here, the reader's own list.
    virtual const AttributeBytesIndexedList& GetAttributeBytesIndexedListRef() const;
    virtual AttributeBytesIndexedList& GetAttributeBytesIndexedListRef();
    // Writes the list to the debug output (one line per attribute).
    virtual void Dump() const;
    // The list of one attribute namespace; here, the reader's own list whatever the namespace.
    virtual const AttributeBytesIndexedList& GetAttributeBytesIndexedListRef(
        AttributeBytesNameSpacesId nameSpace) const;
    virtual AttributeBytesIndexedList& GetAttributeBytesIndexedListRef(
        AttributeBytesNameSpacesId nameSpace);

    // Replaces the reader's own list.
    void SetAttributeBytesIndexedList(const AttributeBytesIndexedList& list);

    // The option value id of the feature.
    DataModelIds::tagValueEnum GetOptionValueFromAttributeBytes(
        long featureId, DataModelIds::tagValueEnum defaultValue);
    // The boolean of the feature. `specified` (optional) is set to whether the list holds a
    // boolean of that feature with its "specified" flag set.
    bool GetBooleanValueFromAttributeBytes(long featureId, bool defaultValue,
                                           bool* specified = nullptr);
    long GetIntegerValueFromAttributeBytes(long featureId, long defaultValue);
    // The dimension (value and unit) of the feature.
    Dimension GetDimensionValue(long featureId, const Dimension& defaultValue);
    CXString GetStringValueFromAttributeBytes(long featureId, const CXString& defaultValue);
    // The nested list of a collection attribute into `collection` (replacing what it held);
    // false, and `collection` empty, when there is none.
    bool GetCollection(long featureId, AttributeBytesIndexedList& collection);
    // A value id held either as an option value or as an integer (a value id the driver made for
    // something the user defined, such as a paper of their own).
    DataModelIds::tagValueEnum GetOptionValueOrNewId(long featureId,
                                                     DataModelIds::tagValueEnum defaultValue);
    // Whether the list holds the feature with its "specified" flag set (any type).
    bool IsSpecifiedInAttributeBytes(long featureId);

    // The same reads over a given list.
    static DataModelIds::tagValueEnum GetOptionValueFromAttributeBytes(
        const AttributeBytesIndexedList& list, long featureId,
        DataModelIds::tagValueEnum defaultValue);
    static bool GetBooleanValueFromAttributeBytes(const AttributeBytesIndexedList& list,
                                                  long featureId, bool defaultValue,
                                                  bool* specified = nullptr);
    static long GetIntegerValueFromAttributeBytes(const AttributeBytesIndexedList& list,
                                                  long featureId, long defaultValue);
    static Dimension GetDimensionValue(const AttributeBytesIndexedList& list, long featureId,
                                       const Dimension& defaultValue);
    static CXString GetStringValueFromAttributeBytes(const AttributeBytesIndexedList& list,
                                                     long featureId, const CXString& defaultValue);
    static bool GetCollection(const AttributeBytesIndexedList& list, long featureId,
                              AttributeBytesIndexedList& collection);
    static DataModelIds::tagValueEnum GetOptionValueOrNewId(
        const AttributeBytesIndexedList& list, long featureId,
        DataModelIds::tagValueEnum defaultValue);
    static bool IsSpecifiedInAttributeBytes(const AttributeBytesIndexedList& list, long featureId);

private:
    AttributeBytesIndexedList m_list;
};
