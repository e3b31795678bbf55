// The library's own wide-text formatter (widefmt: wide printf for the trace). Its conversions are fixed on every platform:
// %s and %c take wide arguments, %hs and %hc narrow ones, %S and %C narrow ones, the
// `l` size means 32 bits, `ll` and `I64` 64 bits, `I` and `z` pointer size, %p prints
// the pointer's upper-case hex digits padded to its width without a prefix. Narrow text
// is read as UTF-8 where it is valid and byte by byte (as Latin-1) where it is not, so
// that no locale is involved.
#include <kelp/trace.h>

#include <cstdio>
#include <cstring>

namespace {

class Out {
public:
    Out(wchar_t* buf, size_t count) : m_buf(buf), m_room(count ? count - 1 : 0), m_ok(count > 0) {}
    void Put(wchar_t c) {
        if (m_len < m_room) m_buf[m_len++] = c;
    }
    void Repeat(wchar_t c, int n) {
        for (int i = 0; i < n; ++i) Put(c);
    }
    int Finish() {
        if (m_ok) m_buf[m_len] = 0;
        return int(m_len);
    }

private:
    wchar_t* m_buf;
    size_t m_room;
    size_t m_len = 0;
    bool m_ok;
};

struct Conversion {
    bool left = false, plus = false, space = false, alt = false, zero = false;
    int width = 0;
    int precision = -1;
};

// Decodes one character of narrow text: UTF-8 where valid, else one byte as Latin-1.
size_t DecodeNarrow(const unsigned char* s, size_t n, wchar_t* out) {
    unsigned char b = s[0];
    int extra = b >= 0xF0 && b < 0xF5 ? 3 : b >= 0xE0 ? 2 : b >= 0xC2 && b < 0xE0 ? 1 : 0;
    if (b >= 0x80 && extra > 0 && size_t(extra) < n) {
        uint32_t c = b & (0x3F >> extra);
        bool ok = true;
        for (int k = 1; k <= extra; ++k) {
            if ((s[k] & 0xC0) != 0x80) {
                ok = false;
                break;
            }
            c = (c << 6) | (s[k] & 0x3F);
        }
        uint32_t minimum = extra == 1 ? 0x80 : extra == 2 ? 0x800 : 0x10000;
        if (ok && c >= minimum && c <= 0x10FFFF && !(c >= 0xD800 && c <= 0xDFFF)) {
            *out = wchar_t(c);
            return size_t(extra) + 1;
        }
    }
    *out = wchar_t(b);
    return 1;
}

void PutPadded(Out& o, const Conversion& sp, const wchar_t* text, int len) {
    int pad = sp.width > len ? sp.width - len : 0;
    if (!sp.left) o.Repeat(L' ', pad);
    for (int i = 0; i < len; ++i) o.Put(text[i]);
    if (sp.left) o.Repeat(L' ', pad);
}

void PutWideString(Out& o, const Conversion& sp, const wchar_t* s) {
    if (!s) s = L"(null)";
    int len = 0;
    while (s[len] && (sp.precision < 0 || len < sp.precision)) ++len;
    PutPadded(o, sp, s, len);
}

void PutNarrowString(Out& o, const Conversion& sp, const char* s) {
    if (!s) s = "(null)";
    const unsigned char* u = reinterpret_cast<const unsigned char*>(s);
    size_t n = strlen(s);
    // Decode first, so that width and precision count characters.
    wchar_t tmp[1024];
    int len = 0;
    size_t i = 0;
    while (i < n && len < 1024 && (sp.precision < 0 || len < sp.precision)) {
        i += DecodeNarrow(u + i, n - i, &tmp[len]);
        ++len;
    }
    PutPadded(o, sp, tmp, len);
}

void PutInteger(Out& o, const Conversion& sp, uint64_t magnitude, bool negative, int base, bool upper,
                bool isSigned) {
    wchar_t digits[72];
    int nd = 0;
    const char* set = upper ? "0123456789ABCDEF" : "0123456789abcdef";
    uint64_t v = magnitude;
    while (v) {
        digits[nd++] = wchar_t(set[v % unsigned(base)]);
        v /= unsigned(base);
    }
    int minDigits = sp.precision >= 0 ? sp.precision : 1;
    if (sp.precision == 0 && magnitude == 0) minDigits = 0;
    int zeros = minDigits > nd ? minDigits - nd : 0;
    wchar_t prefix[3];
    int np = 0;
    if (isSigned) {
        if (negative)
            prefix[np++] = L'-';
        else if (sp.plus)
            prefix[np++] = L'+';
        else if (sp.space)
            prefix[np++] = L' ';
    }
    if (sp.alt && magnitude != 0) {
        if (base == 16) {
            prefix[np++] = L'0';
            prefix[np++] = upper ? L'X' : L'x';
        } else if (base == 8 && zeros == 0) {
            prefix[np++] = L'0';
        }
    }
    int body = np + zeros + nd;
    int pad = sp.width > body ? sp.width - body : 0;
    bool zeroPad = sp.zero && !sp.left && sp.precision < 0;
    if (!sp.left && !zeroPad) o.Repeat(L' ', pad);
    for (int i = 0; i < np; ++i) o.Put(prefix[i]);
    if (zeroPad) o.Repeat(L'0', pad);
    o.Repeat(L'0', zeros);
    while (nd) o.Put(digits[--nd]);
    if (sp.left) o.Repeat(L' ', pad);
}

void PutFloat(Out& o, const Conversion& sp, wchar_t conv, double value) {
    char fmt[32];
    int n = 0;
    fmt[n++] = '%';
    if (sp.left) fmt[n++] = '-';
    if (sp.plus) fmt[n++] = '+';
    if (sp.space) fmt[n++] = ' ';
    if (sp.alt) fmt[n++] = '#';
    if (sp.zero) fmt[n++] = '0';
    n += snprintf(fmt + n, sizeof fmt - size_t(n), "*.*%c", char(conv));
    char text[512];
    snprintf(text, sizeof text, fmt, sp.width > 480 ? 480 : sp.width,
             sp.precision < 0 ? 6 : (sp.precision > 300 ? 300 : sp.precision), value);
    for (const char* p = text; *p; ++p) o.Put(wchar_t(*p));
}

} // namespace

extern "C" int kelpFormatV(wchar_t* buf, size_t count, const wchar_t* format, va_list args) {
    Out o(buf, count);
    if (!format) return o.Finish();
    va_list ap;
    va_copy(ap, args);
    for (const wchar_t* f = format; *f; ++f) {
        if (*f != L'%') {
            o.Put(*f);
            continue;
        }
        const wchar_t* start = f;
        ++f;
        Conversion sp;
        for (;; ++f) {
            if (*f == L'-')
                sp.left = true;
            else if (*f == L'+')
                sp.plus = true;
            else if (*f == L' ')
                sp.space = true;
            else if (*f == L'#')
                sp.alt = true;
            else if (*f == L'0')
                sp.zero = true;
            else
                break;
        }
        if (*f == L'*') {
            sp.width = va_arg(ap, int);
            if (sp.width < 0) {
                sp.left = true;
                sp.width = -sp.width;
            }
            ++f;
        } else {
            while (*f >= L'0' && *f <= L'9') sp.width = sp.width * 10 + (*f++ - L'0');
        }
        if (*f == L'.') {
            ++f;
            sp.precision = 0;
            if (*f == L'*') {
                sp.precision = va_arg(ap, int);
                if (sp.precision < 0) sp.precision = -1;
                ++f;
            } else {
                while (*f >= L'0' && *f <= L'9') sp.precision = sp.precision * 10 + (*f++ - L'0');
            }
        }
        // Sizes: 0 default, 'h' short/narrow, 'l' 32-bit/wide, 'L' 64-bit, 'P' pointer size.
        wchar_t size = 0;
        if (*f == L'h') {
            size = L'h';
            ++f;
            if (*f == L'h') ++f;
        } else if (*f == L'l') {
            size = L'l';
            ++f;
            if (*f == L'l') {
                size = L'L';
                ++f;
            }
        } else if (*f == L'w') {
            size = L'l';
            ++f;
        } else if (*f == L'L' || *f == L'q' || *f == L'j') {
            size = L'L';
            ++f;
        } else if (*f == L'z' || *f == L't') {
            size = L'P';
            ++f;
        } else if (*f == L'I') {
            if (f[1] == L'6' && f[2] == L'4') {
                size = L'L';
                f += 3;
            } else if (f[1] == L'3' && f[2] == L'2') {
                size = L'l';
                f += 3;
            } else {
                size = L'P';
                ++f;
            }
        }
        wchar_t conv = *f;
        switch (conv) {
        case L'd':
        case L'i': {
            int64_t v;
            if (size == L'L')
                v = va_arg(ap, long long);
            else if (size == L'P')
                v = int64_t(va_arg(ap, intptr_t));
            else if (size == L'h')
                v = short(va_arg(ap, int));
            else
                v = va_arg(ap, int);
            uint64_t mag = v < 0 ? uint64_t(0) - uint64_t(v) : uint64_t(v);
            PutInteger(o, sp, mag, v < 0, 10, false, true);
            break;
        }
        case L'u':
        case L'x':
        case L'X':
        case L'o': {
            uint64_t v;
            if (size == L'L')
                v = va_arg(ap, unsigned long long);
            else if (size == L'P')
                v = uint64_t(va_arg(ap, uintptr_t));
            else if (size == L'h')
                v = uint16_t(va_arg(ap, unsigned));
            else
                v = va_arg(ap, unsigned);
            int base = conv == L'u' ? 10 : conv == L'o' ? 8 : 16;
            PutInteger(o, sp, v, false, base, conv == L'X', false);
            break;
        }
        case L'p': {
            uintptr_t v = uintptr_t(va_arg(ap, void*));
            Conversion ps = sp;
            if (ps.precision < 0) ps.precision = int(2 * sizeof(void*));
            ps.alt = false;
            PutInteger(o, ps, v, false, 16, true, false);
            break;
        }
        case L'c':
        case L'C': {
            int v = va_arg(ap, int);
            bool narrow = size == L'h' || (conv == L'C' && size != L'l');
            wchar_t c = narrow ? wchar_t(uint8_t(v)) : wchar_t(v);
            PutPadded(o, sp, &c, 1);
            break;
        }
        case L's':
        case L'S': {
            bool narrow = size == L'h' || (conv == L'S' && size != L'l');
            if (narrow)
                PutNarrowString(o, sp, va_arg(ap, const char*));
            else
                PutWideString(o, sp, va_arg(ap, const wchar_t*));
            break;
        }
        case L'e':
        case L'E':
        case L'f':
        case L'F':
        case L'g':
        case L'G':
        case L'a':
        case L'A':
            PutFloat(o, sp, conv, va_arg(ap, double));
            break;
        case L'%':
            o.Put(L'%');
            break;
        case 0:
            // A lone '%' at the end: print what was there and stop.
            for (const wchar_t* p = start; p < f; ++p) o.Put(*p);
            --f;
            break;
        default:
            // Unknown conversion: printed as it stands, consuming no argument.
            for (const wchar_t* p = start; p <= f; ++p) o.Put(*p);
            break;
        }
    }
    va_end(ap);
    return o.Finish();
}

extern "C" int kelpFormat(wchar_t* buf, size_t count, const wchar_t* format, ...) {
    va_list ap;
    va_start(ap, format);
    int n = kelpFormatV(buf, count, format, ap);
    va_end(ap);
    return n;
}
