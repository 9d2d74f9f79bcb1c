// saxelementnames.h: the SAX reader's cache of element names converted to wide text.
#pragma once

#include <libxml/dict.h>

#include <array>
#include <cstdint>
#include <string>

#include "platform/msxml/saxwidetext.h"
#include "platform/msxml/xmltext.h"

namespace platform::msxml::sax {

// The wide names of elements, converted once per distinct name. libxml2 hands names, prefixes
// and namespace URIs over as strings of its dictionary, so the same pointers come back for every
// element of a kind. A dictionary string never changes while the parser lives, so for names
// that all belong to the dictionary the pointers alone identify them; any other pointer might be
// reused for other text, so its bytes are compared as well. One lookup per callback: what it
// returns stays valid until the next.
class ElementNames {
public:
    struct Names {
        const wchar_t* uri;
        INT uriLength;
        const wchar_t* local;
        INT localLength;
        const wchar_t* qname;
        INT qnameLength;
    };

    Names Lookup(xmlDictPtr dictionary, const xmlChar* uri, const xmlChar* prefix,
                 const xmlChar* local, bool namespaces) {
        const auto key = [](const xmlChar* text) { return reinterpret_cast<std::uintptr_t>(text); };
        Slot& slot =
            m_slots[((key(local) >> 4) ^ (key(uri) >> 6) ^ (key(prefix) >> 8)) % m_slots.size()];
        const bool same =
            slot.filled && slot.uri == uri && slot.prefix == prefix && slot.local == local &&
            (slot.interned || (slot.uriText == View(uri) && slot.prefixText == View(prefix) &&
                               slot.localText == View(local)));
        if (!same) Fill(slot, dictionary, uri, prefix, local, namespaces);
        return {slot.wide.At(slot.u), slot.u.length,        slot.wide.At(slot.l),
                slot.l.length,        slot.wide.At(slot.q), slot.q.length};
    }

private:
    struct Slot {
        bool filled = false;
        bool interned = false;  // every non-null pointer belongs to the dictionary
        const xmlChar* uri = nullptr;
        const xmlChar* prefix = nullptr;
        const xmlChar* local = nullptr;
        std::string uriText;
        std::string prefixText;
        std::string localText;
        WideArena wide;
        WideArena::Piece u;
        WideArena::Piece l;
        WideArena::Piece q;
    };

    static bool Interned(xmlDictPtr dictionary, const xmlChar* text) {
        return text == nullptr || (dictionary != nullptr && xmlDictOwns(dictionary, text) == 1);
    }

    static void Fill(Slot& slot, xmlDictPtr dictionary, const xmlChar* uri, const xmlChar* prefix,
                     const xmlChar* local, bool namespaces) {
        slot.filled = true;
        slot.interned = Interned(dictionary, uri) && Interned(dictionary, prefix) &&
                        Interned(dictionary, local);
        slot.uri = uri;
        slot.prefix = prefix;
        slot.local = local;
        slot.uriText.assign(View(uri));
        slot.prefixText.assign(View(prefix));
        slot.localText.assign(View(local));
        slot.wide.Clear();
        std::string scratch;
        slot.u = slot.wide.Add(namespaces ? UndoAmpersandReferences(slot.uriText, scratch)
                                          : std::string_view());
        slot.l = slot.wide.Add(namespaces ? std::string_view(slot.localText) : std::string_view());
        slot.q = slot.wide.AddJoined(slot.prefixText, slot.localText);
    }

    std::array<Slot, 61> m_slots;
};

}  // namespace platform::msxml::sax
