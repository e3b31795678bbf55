// The plain pixel loops of CKXCsc and CKXCsc2.
#include "kelp/kxcsc.h"

namespace kelp {

int CKXCsc::BGRToYUV444Planar(const uint8_t*, uint8_t*, int, int, uint32_t, uint32_t) {
    return 0;
}
int CKXCsc::BGRToYUV444Meshed(const uint8_t*, uint8_t*, int, int, uint32_t, uint32_t) {
    return 0;
}
int CKXCsc::YUV444PlanarToBGR(const uint8_t*, uint8_t*, int, int, uint32_t, uint32_t) {
    return 0;
}
int CKXCsc::YUV444MeshedToBGR(const uint8_t*, uint8_t*, int, int, uint32_t, uint32_t) {
    return 0;
}
int CKXCsc::YUV444MeshedToYUV444(const uint8_t*, uint8_t*, int, int, uint32_t, uint32_t, ColorSpace,
                                 ColorSpace) {
    return 0;
}
int CKXCsc::BGRToYUV422Meshed(const uint8_t*, uint8_t*, int, int, uint32_t, uint32_t, int) {
    return 0;
}
int CKXCsc::YUV422MeshedToBGR(const uint8_t*, uint8_t*, int, int, uint32_t, uint32_t, int) {
    return 0;
}
int CKXCsc::YUV444MeshedToYUV422Meshed(const uint8_t*, uint8_t*, int, int, uint32_t, uint32_t,
                                       int) {
    return 0;
}
int CKXCsc::YUV411MeshedToYUV422Meshed(const uint8_t*, uint8_t*, int, int, uint32_t, uint32_t) {
    return 0;
}
int CKXCsc::YUV422MeshedToYUV444Meshed(const uint8_t*, uint8_t*, int, int, uint32_t, uint32_t,
                                       int) {
    return 0;
}
int CKXCsc::YUV422MeshedToYUV411Meshed(const uint8_t*, uint8_t*, int, int, uint32_t, uint32_t) {
    return 0;
}
int CKXCsc2::BGRToYUV422Planar(const uint8_t*, uint8_t*, int, int, uint32_t, uint32_t, int) {
    return 0;
}
int CKXCsc2::YUV444MeshedToYUV422Planar(const uint8_t*, uint8_t*, int, int, uint32_t, uint32_t,
                                        int) {
    return 0;
}
int CKXCsc2::UYVYToBGR(const uint8_t*, uint8_t*, int, int, uint32_t, uint32_t) {
    return 0;
}
int CKXCsc2::UYVKToBGR(const uint8_t*, uint8_t*, int, int, uint32_t, uint32_t, int) {
    return 0;
}
int CKXCsc2::YUVKToBGR(const uint8_t*, uint8_t*, int, int, uint32_t, uint32_t, int, int) {
    return 0;
}

} // namespace kelp
