// ".BSI" record rules.
#include "bsiio.h"

namespace kelp {
namespace imgfile {

bool BsiRecordAllowed(uint32_t recordBytes, uint64_t fileBytes) {
    return recordBytes >= kBsiMinRecord && recordBytes <= kBsiMaxRecord && recordBytes <= fileBytes;
}

void BsiSettleExtension(KXBMINFOHEADER* record, uint32_t recordBytes) {
    if (record->biCompression != KXBI_YUV || recordBytes < KXBMI_SIZE_YUV) return;
    KXYUVEXT* e = DIBYuv(record);
    if (e->yuvSampling < 16) e->yuvSampling = 0;
    if (e->yuvSamplingAux < 16) e->yuvSamplingAux = 0;
}

} // namespace imgfile
} // namespace kelp
