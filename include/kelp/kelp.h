// kelp: the media framework library. This one header declares the whole exported
// interface; the subsystem headers beside it may also be included on their own.
#pragma once

#include "kelpdefs.h"
#include "trace.h"
#include "alloc.h"
#include "kxbih.h"
#include "kxconv.h"
#include "kxcodec.h"
#include "mpheap.h"
#include "version.h"
#include "wavformat.h"
#include "samrate.h"
#include "kelpcfg.h"
#include "kelpcpu.h"
#include "kelpthread.h"
#include "kxunknown.h"
#include "samplerateconverter.h"
#include "kelpimg.h"
#include "imageio.h"
#include "stdfx.h"
#include "stdfx2d.h"
#include "timewarp.h"
