// printticketattributebytesreaderwriter.cpp: from device mode bytes to the attribute list of a
// namespace: plug-in part, CRC check, process-wide cache, attribute record, persistent
// attributes.
#include "filterpipeline/filterutilities/printticketattributebytesreaderwriter.h"

#include "filterpipeline/filterutilities/printticketxmldocument.h"
#include "support/errorframe/errorframe.h"
#include "support/utilities/globalcaches.h"
#include "support/utilities/persistentattributes.h"

PrintTicketAttributeBytesReaderWriter::PrintTicketAttributeBytesReaderWriter()
    : PrintTicketAttributeBytesReaderWriter(nullptr) {}

PrintTicketAttributeBytesReaderWriter::PrintTicketAttributeBytesReaderWriter(
    PrintTicketXmlDocument* ticket)
    : m_pPrintTicket(ticket), m_cachedNameSpaceId(-1) {}

PrintTicketAttributeBytesReaderWriter::~PrintTicketAttributeBytesReaderWriter() = default;

PrintTicketAttributeBytesReaderWriter& PrintTicketAttributeBytesReaderWriter::operator=(
    PrintTicketAttributeBytesReaderWriter& other) {
    if (this == &other) return *this;
    AttributeBytesReaderWriter::operator=(other);
    m_pPrintTicket = other.m_pPrintTicket;
    // The one place where the cached list changes owner: the source is left without one.
    m_cachedList = std::move(other.m_cachedList);
    m_cachedNameSpaceId = other.m_cachedNameSpaceId;
    m_devmode = other.m_devmode;
    return *this;
}

void PrintTicketAttributeBytesReaderWriter::SetDevmode(ByteBuffer& devmode) {
    m_devmode = devmode;
    ClearCachedIndexedList();
}

DEVMODEW* PrintTicketAttributeBytesReaderWriter::GetPublicDevmodePtr() {
    if (m_devmode.size() < OemDevmode::kPublicDevmodeSize) return nullptr;
    return reinterpret_cast<DEVMODEW*>(m_devmode.data());
}

OEMDEV* PrintTicketAttributeBytesReaderWriter::GetOemDevmodeFromDevmode(DEVMODEW* devmode) {
    if (devmode == nullptr) {
        THROW_NULL_POINTER(L"PrintTicketAttributeBytesReaderWriter::GetOemDevmodeFromDevmode",
                           "devmode");
    }
    OemDevmode::Location found = OemDevmode::FindTrusted(devmode);
    return reinterpret_cast<OEMDEV*>(const_cast<BYTE*>(found.part));
}

OEMDEV* PrintTicketAttributeBytesReaderWriter::GetOemDevmodeFromDevmode(DEVMODEW* devmode,
                                                                        std::size_t available) {
    if (devmode == nullptr) {
        THROW_NULL_POINTER(L"PrintTicketAttributeBytesReaderWriter::GetOemDevmodeFromDevmode",
                           "devmode");
    }
    OemDevmode::Location found =
        OemDevmode::Find(reinterpret_cast<const BYTE*>(devmode), available);
    return reinterpret_cast<OEMDEV*>(const_cast<BYTE*>(found.part));
}

void PrintTicketAttributeBytesReaderWriter::ClearCachedIndexedList() {
    m_cachedList.reset();
    m_cachedNameSpaceId = -1;
}

const AttributeBytesIndexedList&
PrintTicketAttributeBytesReaderWriter::GetAttributeBytesIndexedListRef() const {
    return const_cast<PrintTicketAttributeBytesReaderWriter*>(this)
        ->GetAttributeBytesIndexedListRef();
}

AttributeBytesIndexedList&
PrintTicketAttributeBytesReaderWriter::GetAttributeBytesIndexedListRef() {
    return GetAttributeBytesIndexedListRef(PersistentAttributes::GetDataModelDocPropNameSpaceId());
}

void PrintTicketAttributeBytesReaderWriter::Dump() const {}

const AttributeBytesIndexedList&
PrintTicketAttributeBytesReaderWriter::GetAttributeBytesIndexedListRef(
    AttributeBytesNameSpacesId nameSpace) const {
    return const_cast<PrintTicketAttributeBytesReaderWriter*>(this)
        ->GetAttributeBytesIndexedListRef(nameSpace);
}

AttributeBytesIndexedList& PrintTicketAttributeBytesReaderWriter::GetAttributeBytesIndexedListRef(
    AttributeBytesNameSpacesId nameSpace) {
    if (m_cachedList && m_cachedNameSpaceId == nameSpace.GetNameSpaceId()) return *m_cachedList;

    // A new empty list; the object of an earlier (empty or other namespace's) list is reused,
    // since a view asks again for every getter while its tickets carry no attributes.
    if (m_cachedList) {
        m_cachedList->Clear();
    } else {
        m_cachedList = std::make_unique<AttributeBytesIndexedList>();
    }
    m_cachedNameSpaceId = -1;
    ++m_listRebuilds;

    if (m_devmode.empty() && m_pPrintTicket != nullptr) {
        m_pPrintTicket->GetDevmodeFromPrintTicket(m_devmode);
    }
    if (!m_devmode.empty()) {
        OemDevmode::Location found = OemDevmode::Find(m_devmode.data(), m_devmode.size());
        if (found.part != nullptr) {
            DWORD crc = OemDevmode::ComputeCrc(found.part);
            if (crc == OemDevmode::ReadHeader(found.part).storedCrc &&
                !GlobalCaches::CheckXDevmodeAttributeBytesIndexedListCache(nameSpace, crc,
                                                                           *m_cachedList)) {
                ByteBuffer attributeBytes;
                if (OemDevmode::TakeAttributeRecord(found.part, attributeBytes)) {
                    PersistentAttributes attributes(attributeBytes, false, nullptr);
                    AttributeBytesRawList raw;
                    attributes.GetAttributeBytesListForNameSpace(nameSpace, raw);
                    m_cachedList->ImportFromRawList(raw);
                    GlobalCaches::StoreXDevmodeAttributeBytesIndexedListCache(nameSpace, crc,
                                                                              *m_cachedList);
                }
            }
        }
    }

    // An empty result is not kept as the namespace's list: the next call tries again.
    if (!m_cachedList->IsEmpty()) m_cachedNameSpaceId = nameSpace.GetNameSpaceId();
    return *m_cachedList;
}
