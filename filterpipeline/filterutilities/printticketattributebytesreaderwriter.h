// printticketattributebytesreaderwriter.h: PrintTicketAttributeBytesReaderWriter reads the
// driver's settings out of a device mode: it finds the driver's plug-in part in the device mode
// (given, or the page device mode snapshot of a PrintTicket), checks its CRC, takes the
// serialised persistent attributes from its records and builds the attribute list of a
// namespace, which the AttributeBytesReader reads then use. The list is cached per namespace.
#pragma once

#include <memory>

#include "filterpipeline/filterutilities/attributebytesreaderwriter.h"
#include "filterpipeline/filterutilities/oemdevmode.h"
#include "platform/win32/wingdi.h"
#include "support/utilities/attributebytes.h"
#include "support/utilities/bytebuffer.h"

class PrintTicketXmlDocument;

class PrintTicketAttributeBytesReaderWriter : public AttributeBytesReaderWriter {
public:
    PrintTicketAttributeBytesReaderWriter();
    // The ticket is not owned; it supplies the device mode when none was set.
    explicit PrintTicketAttributeBytesReaderWriter(PrintTicketXmlDocument* ticket);
    ~PrintTicketAttributeBytesReaderWriter() override;

    // Takes over the other object's cached list (the other loses it) and copies its ticket
    // pointer, cached namespace and device mode bytes.
    PrintTicketAttributeBytesReaderWriter& operator=(PrintTicketAttributeBytesReaderWriter& other);
    PrintTicketAttributeBytesReaderWriter(const PrintTicketAttributeBytesReaderWriter&) = delete;

    // Copies the device mode bytes and drops the cached list.
    void SetDevmode(ByteBuffer& devmode);
    const ByteBuffer& GetDevmode() const { return m_devmode; }

    // The public device mode at the start of the bytes; null when there are fewer bytes than the
    // 220 of a public DEVMODEW (none at all included).
    DEVMODEW* GetPublicDevmodePtr();

    // The plug-in part of a device mode whose dmSize + dmDriverExtra bytes are all readable, or
    // null when neither core-driver layout gives a valid part. A null device mode throws
    // ExceptionInvalidArgumentNullPointer. The part may lie at any byte offset: read its fields
    // with the OemDevmode functions.
    static OEMDEV* GetOemDevmodeFromDevmode(DEVMODEW* devmode);
    // The same for `available` bytes that need not hold the whole device mode: every offset is
    // checked against them, and a device mode shorter than dmSize + dmDriverExtra has no part.
    static OEMDEV* GetOemDevmodeFromDevmode(DEVMODEW* devmode, std::size_t available);

    // Frees the cached list; the next read builds it again.
    void ClearCachedIndexedList();

    // The list of the data model's document-property namespace.
    const AttributeBytesIndexedList& GetAttributeBytesIndexedListRef() const override;
    AttributeBytesIndexedList& GetAttributeBytesIndexedListRef() override;
    // Writes nothing: the list is dumped by its reader.
    void Dump() const override;
    // The list of a namespace, built from the device mode when it is not the cached one. The
    // reference stays valid until the next SetDevmode, ClearCachedIndexedList or call for
    // another namespace. A device mode without a valid plug-in part, with a part whose CRC
    // does not match, or without an attribute record gives an empty list (built again on the
    // next call).
    const AttributeBytesIndexedList& GetAttributeBytesIndexedListRef(
        AttributeBytesNameSpacesId nameSpace) const override;
    AttributeBytesIndexedList& GetAttributeBytesIndexedListRef(
        AttributeBytesNameSpacesId nameSpace) override;

    // How many times this object has built a list (the cached one did not serve), for tests and
    // diagnostics.
    unsigned long GetListRebuildCount() const { return m_listRebuilds; }

protected:
    PrintTicketXmlDocument* m_pPrintTicket;

private:
    std::unique_ptr<AttributeBytesIndexedList> m_cachedList;
    long m_cachedNameSpaceId;
    ByteBuffer m_devmode;
    unsigned long m_listRebuilds = 0;
};
