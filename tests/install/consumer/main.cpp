// Loads a PrintTicket through the installed library and prints its media size option.
#include <filterutilities.h>

#include <cstdio>

int main() {
    const wchar_t* ticket =
        L"<psf:PrintTicket xmlns:psf='http://schemas.microsoft.com/windows/2003/08/printing/"
        L"printschemaframework' xmlns:psk='http://schemas.microsoft.com/windows/2003/08/"
        L"printing/printschemakeywords' version='1'><psf:Feature name='psk:PageMediaSize'>"
        L"<psf:Option name='psk:ISOA4'/></psf:Feature></psf:PrintTicket>";
    CComPtr<IXMLDOMDocument2> dom;
    if (FAILED(dom.CoCreateInstance(CLSID_DOMDocument60))) return 2;
    VARIANT_BOOL loaded = VARIANT_FALSE;
    if (FAILED(dom->loadXML(CComBSTR(ticket), &loaded)) || loaded != VARIANT_TRUE) return 3;
    try {
        PrintTicketXmlDocument document(dom);
        CComBSTR option;
        if (document.GetFeatureOption(CComBSTR(L"PageMediaSize"), &option, nullptr) != S_OK) {
            return 4;
        }
        std::printf("PageMediaSize: %ls\n", static_cast<const wchar_t*>(option));
    } catch (const ZorunComException& e) {
        std::printf("failed: 0x%08X\n", static_cast<unsigned>(e.GetHresult()));
        return 5;
    }
    return 0;
}
