// attributebytesreaderwriter.h: AttributeBytesReaderWriter, the attribute-bytes reader that the
// library's private-data classes derive from. It adds nothing to AttributeBytesReader but its
// place in the class tree.
#pragma once

#include "support/utilities/attributebytesreader.h"

class AttributeBytesReaderWriter : public AttributeBytesReader {
public:
    AttributeBytesReaderWriter();
    AttributeBytesReaderWriter(const AttributeBytesReaderWriter& other) = default;
    AttributeBytesReaderWriter& operator=(const AttributeBytesReaderWriter& other);
    ~AttributeBytesReaderWriter() override;
};
