// The image toolkit: fixed-point geometry, resampling kernels, lookup tables and HSL,
// the CDIB image and the pixel format translators (namespaces stdfx and stdfx2d).
#pragma once

#include "stdfx_dib.h"
#include "stdfx_filter.h"
#include "stdfx_geometry.h"
#include "stdfx_performance.h"
#include "stdfx_rle.h"
#include "stdfx_tables.h"
#include "stdfx_translate.h"
#include "stdfx_compose.h"
