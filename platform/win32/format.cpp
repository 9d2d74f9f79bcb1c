// format.cpp: the Windows-rules printf engine. Each conversion is parsed here; text conversions
// (%s %S %c %C) are done here with UTF-8 conversion; numbers are handed to the C library's
// snprintf with a rebuilt, fully resolved conversion in the "C" locale.
#include "platform/win32/format.h"

#include <locale.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <type_traits>

#include "platform/com/unicode.h"

namespace platform {
namespace {

// va_list is an array type on some ABIs; wrapping it lets helpers consume arguments by reference.
struct ArgList {
    va_list ap;
};

enum class SizePrefix { None, hh, h, l, ll, L, I32, I64, I, z, t, j, w };

struct Conversion {
    bool leftAlign = false;
    bool zeroPad = false;
    std::string flags;  // the flags as written, for numbers
    int width = 0;
    int precision = -1;  // -1: none
    SizePrefix size = SizePrefix::None;
    char type = 0;
};

// Switches to the "C" locale for the lifetime of the object, on this thread only.
class CLocaleScope {
public:
    CLocaleScope() {
        static locale_t cLocale = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
        m_previous = cLocale != static_cast<locale_t>(nullptr) ? uselocale(cLocale)
                                                               : static_cast<locale_t>(nullptr);
    }
    ~CLocaleScope() {
        if (m_previous != static_cast<locale_t>(nullptr)) uselocale(m_previous);
    }
    CLocaleScope(const CLocaleScope&) = delete;
    CLocaleScope& operator=(const CLocaleScope&) = delete;

private:
    locale_t m_previous;
};

template <class T>
std::string CFormat(const std::string& cformat, T value) {
    char small[128];
    int n = std::snprintf(small, sizeof small, cformat.c_str(), value);
    if (n < 0) return {};
    if (static_cast<std::size_t>(n) < sizeof small) return std::string(small, n);
    std::string big(static_cast<std::size_t>(n), '\0');
    std::snprintf(big.data(), big.size() + 1, cformat.c_str(), value);
    return big;
}

// Where to cut a UTF-8 string so that at most `limit` bytes are kept and no sequence is split.
std::size_t Utf8Cut(const char* text, std::size_t length, std::size_t limit) {
    if (limit >= length) return length;
    std::size_t cut = limit;
    while (cut > 0 && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80) --cut;
    return cut;
}

template <class C>
class Engine {
public:
    static constexpr bool kWide = std::is_same_v<C, wchar_t>;
    using String = std::basic_string<C>;

    Engine(String& out, ArgList& args) : m_out(out), m_args(args) {}

    bool Run(const C* format) {
        if (format == nullptr) return false;
        CLocaleScope locale;
        const C* p = format;
        while (*p != 0) {
            if (*p != '%') {
                m_out.push_back(*p++);
                continue;
            }
            ++p;
            if (*p == '%') {
                m_out.push_back('%');
                ++p;
                continue;
            }
            Conversion conv;
            if (!Parse(p, conv) || !Emit(conv)) return false;
        }
        return true;
    }

private:
    static bool IsDigit(C c) { return c >= '0' && c <= '9'; }

    // Reads digits into value; false when the number exceeds the width limit.
    static bool ReadNumber(const C*& p, int& value) {
        long long n = 0;
        while (IsDigit(*p)) {
            n = n * 10 + (*p++ - '0');
            if (n > kMaxFormatWidth) return false;
        }
        value = static_cast<int>(n);
        return true;
    }

    // Reads one conversion after its '%': flags, width, precision, size prefix and type.
    bool Parse(const C*& p, Conversion& conv) {
        ParseFlags(p, conv);
        if (!ParseWidth(p, conv) || !ParsePrecision(p, conv)) return false;
        ParseSize(p, conv);
        if (*p == 0) return false;
        C type = *p++;
        if (type < 0x20 || type > 0x7E) return false;
        conv.type = static_cast<char>(type);
        return true;
    }

    static void ParseFlags(const C*& p, Conversion& conv) {
        for (;; ++p) {
            if (*p == '-') {
                conv.leftAlign = true;
            } else if (*p == '0') {
                conv.zeroPad = true;
            } else if (*p == '+' || *p == ' ' || *p == '#') {
            } else {
                break;
            }
            conv.flags.push_back(static_cast<char>(*p));
        }
    }

    // A width written out or taken from the arguments ('*'; negative means left-aligned).
    bool ParseWidth(const C*& p, Conversion& conv) {
        if (*p == '*') {
            ++p;
            int width = va_arg(m_args.ap, int);
            if (width < 0) {
                if (width == INT_MIN) return false;
                conv.leftAlign = true;
                conv.flags.push_back('-');
                width = -width;
            }
            if (width > kMaxFormatWidth) return false;
            conv.width = width;
        } else if (IsDigit(*p)) {
            if (!ReadNumber(p, conv.width)) return false;
            if (*p == '$') return false;  // positional arguments are not supported
        }
        return true;
    }

    // '.' and a precision written out or taken from the arguments (negative means none).
    bool ParsePrecision(const C*& p, Conversion& conv) {
        if (*p != '.') return true;
        ++p;
        if (*p == '*') {
            ++p;
            int precision = va_arg(m_args.ap, int);
            if (precision > kMaxFormatWidth) return false;
            conv.precision = precision < 0 ? -1 : precision;
            return true;
        }
        conv.precision = 0;
        return ReadNumber(p, conv.precision);
    }

    // The size prefixes of C and of Microsoft's runtime (h, hh, l, ll, L, w, z, t, j, I, I32, I64).
    static void ParseSize(const C*& p, Conversion& conv) {
        switch (*p) {
            case 'h':
                ++p;
                conv.size = SizePrefix::h;
                if (*p == 'h') {
                    ++p;
                    conv.size = SizePrefix::hh;
                }
                break;
            case 'l':
                ++p;
                conv.size = SizePrefix::l;
                if (*p == 'l') {
                    ++p;
                    conv.size = SizePrefix::ll;
                }
                break;
            case 'L':
                ++p;
                conv.size = SizePrefix::L;
                break;
            case 'w':
                ++p;
                conv.size = SizePrefix::w;
                break;
            case 'z':
                ++p;
                conv.size = SizePrefix::z;
                break;
            case 't':
                ++p;
                conv.size = SizePrefix::t;
                break;
            case 'j':
                ++p;
                conv.size = SizePrefix::j;
                break;
            case 'I':
                ++p;
                if (p[0] == '6' && p[1] == '4') {
                    p += 2;
                    conv.size = SizePrefix::I64;
                } else if (p[0] == '3' && p[1] == '2') {
                    p += 2;
                    conv.size = SizePrefix::I32;
                } else {
                    conv.size = SizePrefix::I;
                }
                break;
            default:
                break;
        }
    }

    bool Emit(const Conversion& conv) {
        switch (conv.type) {
            case 's':
            case 'S':
                return EmitString(conv);
            case 'c':
            case 'C':
                return EmitChar(conv);
            case 'd':
            case 'i':
                return EmitSigned(conv);
            case 'u':
            case 'o':
            case 'x':
            case 'X':
                return EmitUnsigned(conv);
            case 'e':
            case 'E':
            case 'f':
            case 'F':
            case 'g':
            case 'G':
            case 'a':
            case 'A':
                return EmitFloat(conv);
            case 'p':
                return EmitPointer(conv);
            default:
                return false;  // %n and anything unknown
        }
    }

    // Whether a text conversion takes wide text; false with ok=false for a prefix that does not
    // belong on a text conversion.
    static bool TakesWide(const Conversion& conv, bool& ok) {
        ok = true;
        switch (conv.size) {
            case SizePrefix::h:
                return false;
            case SizePrefix::l:
            case SizePrefix::w:
                return true;
            case SizePrefix::None:
                // Lower case: the format's own width; upper case: the other one.
                return (conv.type == 's' || conv.type == 'c') ? kWide : !kWide;
            default:
                ok = false;
                return false;
        }
    }

    void Pad(const String& text, const Conversion& conv, bool zeroAllowed) {
        std::size_t width = static_cast<std::size_t>(conv.width);
        std::size_t fill = text.size() < width ? width - text.size() : 0;
        C padChar = (conv.zeroPad && zeroAllowed && !conv.leftAlign) ? C('0') : C(' ');
        if (!conv.leftAlign) m_out.append(fill, padChar);
        m_out.append(text);
        if (conv.leftAlign) m_out.append(fill, C(' '));
    }

    static String FromAscii(const std::string& text) { return String(text.begin(), text.end()); }

    bool EmitString(const Conversion& conv) {
        bool ok = true;
        bool wideArg = TakesWide(conv, ok);
        if (!ok) return false;
        String text;
        std::size_t limit = conv.precision < 0 ? static_cast<std::size_t>(-1)
                                               : static_cast<std::size_t>(conv.precision);
        if (wideArg) {
            const wchar_t* arg = va_arg(m_args.ap, const wchar_t*);
            std::wstring_view source = arg != nullptr ? std::wstring_view(arg) : L"(null)";
            source = source.substr(0, limit);
            if constexpr (kWide) {
                text.assign(source);
            } else {
                text = WideToUtf8(source);
            }
        } else {
            const char* arg = va_arg(m_args.ap, const char*);
            std::string_view source = arg != nullptr ? std::string_view(arg) : "(null)";
            source = source.substr(0, Utf8Cut(source.data(), source.size(), limit));
            if constexpr (kWide) {
                text = Utf8ToWide(source);
            } else {
                text.assign(source);
            }
        }
        Pad(text, conv, true);
        return true;
    }

    bool EmitChar(const Conversion& conv) {
        bool ok = true;
        bool wideArg = TakesWide(conv, ok);
        if (!ok) return false;
        String text;
        if (wideArg) {
            auto c = static_cast<char32_t>(va_arg(m_args.ap, unsigned int));
            if constexpr (kWide) {
                text.push_back(static_cast<wchar_t>(c));
            } else {
                std::string utf8;
                if (c == 0) {
                    utf8.push_back('\0');
                } else {
                    AppendUtf8(utf8, c);
                }
                text = utf8;
            }
        } else {
            auto c = static_cast<unsigned char>(va_arg(m_args.ap, int));
            if constexpr (kWide) {
                text.push_back(c < 0x80 ? static_cast<wchar_t>(c) : L'\xFFFD');
            } else {
                text.push_back(static_cast<char>(c));
            }
        }
        Pad(text, conv, true);
        return true;
    }

    std::string NumberSpec(const Conversion& conv, const char* length) const {
        std::string cformat = "%" + conv.flags;
        if (conv.width > 0) cformat += std::to_string(conv.width);
        if (conv.precision >= 0) cformat += "." + std::to_string(conv.precision);
        cformat += length;
        cformat.push_back(conv.type);
        return cformat;
    }

    bool EmitSigned(const Conversion& conv) {
        long long value = 0;
        switch (conv.size) {
            case SizePrefix::hh:
                value = static_cast<signed char>(va_arg(m_args.ap, int));
                break;
            case SizePrefix::h:
                value = static_cast<short>(va_arg(m_args.ap, int));
                break;
            case SizePrefix::None:
            case SizePrefix::l:
            case SizePrefix::w:
            case SizePrefix::I32:
                value = va_arg(m_args.ap, int);
                break;
            case SizePrefix::ll:
            case SizePrefix::L:
            case SizePrefix::I64:
                value = va_arg(m_args.ap, long long);
                break;
            case SizePrefix::I:
            case SizePrefix::z:
            case SizePrefix::t:
            case SizePrefix::j:
                static_assert(sizeof(std::ptrdiff_t) == sizeof(long long));
                value = va_arg(m_args.ap, long long);
                break;
        }
        m_out += FromAscii(CFormat(NumberSpec(conv, "ll"), value));
        return true;
    }

    bool EmitUnsigned(const Conversion& conv) {
        unsigned long long value = 0;
        switch (conv.size) {
            case SizePrefix::hh:
                value = static_cast<unsigned char>(va_arg(m_args.ap, unsigned int));
                break;
            case SizePrefix::h:
                value = static_cast<unsigned short>(va_arg(m_args.ap, unsigned int));
                break;
            case SizePrefix::None:
            case SizePrefix::l:
            case SizePrefix::w:
            case SizePrefix::I32:
                value = va_arg(m_args.ap, unsigned int);
                break;
            case SizePrefix::ll:
            case SizePrefix::L:
            case SizePrefix::I64:
            case SizePrefix::I:
            case SizePrefix::z:
            case SizePrefix::t:
            case SizePrefix::j:
                value = va_arg(m_args.ap, unsigned long long);
                break;
        }
        m_out += FromAscii(CFormat(NumberSpec(conv, "ll"), value));
        return true;
    }

    bool EmitFloat(const Conversion& conv) {
        switch (conv.size) {
            case SizePrefix::None:
            case SizePrefix::l:
                m_out += FromAscii(CFormat(NumberSpec(conv, ""), va_arg(m_args.ap, double)));
                return true;
            case SizePrefix::L:
                m_out += FromAscii(CFormat(NumberSpec(conv, "L"), va_arg(m_args.ap, long double)));
                return true;
            default:
                return false;
        }
    }

    bool EmitPointer(const Conversion& conv) {
        if (conv.size != SizePrefix::None) return false;
        const void* pointer = va_arg(m_args.ap, const void*);
        char digits[2 * sizeof(void*) + 1];
        std::snprintf(digits, sizeof digits, "%0*llX", static_cast<int>(2 * sizeof(void*)),
                      static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(pointer)));
        Pad(FromAscii(digits), conv, false);
        return true;
    }

    String& m_out;
    ArgList& m_args;
};

template <class C>
bool Format(std::basic_string<C>& out, const C* format, va_list args) {
    out.clear();
    ArgList list;
    va_copy(list.ap, args);
    bool ok = Engine<C>(out, list).Run(format);
    va_end(list.ap);
    return ok;
}

}  // namespace

bool FormatNarrowV(std::string& out, const char* format, va_list args) {
    return Format(out, format, args);
}

bool FormatWideV(std::wstring& out, const wchar_t* format, va_list args) {
    return Format(out, format, args);
}

bool FormatNarrow(std::string& out, const char* format, ...) {
    va_list args;
    va_start(args, format);
    bool ok = FormatNarrowV(out, format, args);
    va_end(args);
    return ok;
}

bool FormatWide(std::wstring& out, const wchar_t* format, ...) {
    va_list args;
    va_start(args, format);
    bool ok = FormatWideV(out, format, args);
    va_end(args);
    return ok;
}

}  // namespace platform
