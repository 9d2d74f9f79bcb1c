// attributebytesreaderwriter.cpp: AttributeBytesReaderWriter forwards to AttributeBytesReader.
#include "filterpipeline/filterutilities/attributebytesreaderwriter.h"

AttributeBytesReaderWriter::AttributeBytesReaderWriter() : AttributeBytesReader() {}

AttributeBytesReaderWriter& AttributeBytesReaderWriter::operator=(
    const AttributeBytesReaderWriter& other) {
    AttributeBytesReader::operator=(other);
    return *this;
}

AttributeBytesReaderWriter::~AttributeBytesReaderWriter() = default;
