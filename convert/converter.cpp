// The stage base.
#include "converter.h"

#include <kelp/trace.h>

namespace kelp {

CConverter::CConverter(const wchar_t* name) {
    int n = 0;
    if (name)
        for (; n < 15 && name[n]; ++n)
            m_szName[n] = name[n];
    m_szName[n] = 0;
}

KXRESULT CConverter::QueryFormats(KXBMINFOHEADER* in, KXBMINFOHEADER* out) {
    KXRESULT r = QueryInput(in);
    if (KX_FAILED(r)) {
        dbgPrintf(8, 31, L"%s::Query: bad Input format\r\n", m_szName);
        return r;
    }
    r = QueryOutput(out);
    if (KX_FAILED(r)) {
        dbgPrintf(8, 31, L"%s::Query: bad Output format\r\n", m_szName);
        return r;
    }
    return KX_OK;
}

} // namespace kelp
