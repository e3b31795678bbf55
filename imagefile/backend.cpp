// What every backend shares: loading as a sequence of decode, depth change, turn and
// resize, and the choice of a backend for a file.
#include "backend.h"

#include "bmpio.h"
#include "jpegio.h"
#include "pcxio.h"
#include "pngio.h"
#include "psdio.h"
#include "tgaio.h"
#include "tiffio.h"
#include "wmfio.h"

namespace kelp {
namespace imgfile {

namespace {

bool Turns(uint32_t orientation) {
    return orientation >= 2 && orientation <= 8;
}

// The picture decoded, at the requested depth and turned. The caller's allocator
// serves at most one block at a time, and only the step that makes the result: an
// allocator that keeps a single block (CSingleAllocator) must never be asked for a
// second one while the first is still read.
KXRESULT DecodeAndTurn(const CBackend* backend, const Bytes& file, const LoadRequest& req,
                       int32_t minWidth, int32_t minHeight, bool lastStep, Bitmap* out) {
    const bool turn = Turns(req.orientation);
    const bool swap = req.orientation >= 5 && req.orientation <= 8;
    DecodeRequest d;
    d.bits = req.bits;
    d.minWidth = swap ? minHeight : minWidth;
    d.minHeight = swap ? minWidth : minHeight;
    d.resolution = req.resolution;
    d.limits = req.limits;
    d.allocator = (lastStep && !turn) ? req.allocator : nullptr;
    Bitmap bmp;
    KXRESULT r = backend->Decode(file, d, &bmp);
    if (KX_FAILED(r)) return r;
    // A backend may give the file's own depth where 24 or 32 bits were asked; the
    // turn needs one of the two as well.
    uint32_t bits = bmp.Bits();
    if (req.bits == 24 || req.bits == 32)
        bits = req.bits;
    else if (turn && bits < 24)
        bits = 24;
    if (bits != bmp.Bits()) {
        Bitmap c;
        const bool last = lastStep && !turn && bmp.Allocator() != req.allocator;
        if (!ChangeDepth(bmp, bits, &c, req.limits, last ? req.allocator : nullptr))
            return KXE_IMAGEFILE;
        bmp = static_cast<Bitmap&&>(c);
    }
    if (turn) {
        Bitmap o;
        const bool last = lastStep && bmp.Allocator() != req.allocator;
        if (!Orient(bmp, req.orientation, &o, req.limits, last ? req.allocator : nullptr))
            return KXE_IMAGEFILE;
        bmp = static_cast<Bitmap&&>(o);
    }
    *out = static_cast<Bitmap&&>(bmp);
    return KX_OK;
}

} // namespace

KXRESULT CBackend::Load(const Bytes& file, const LoadRequest& req, Bitmap* out) const {
    return DecodeAndTurn(this, file, req, 0, 0, true, out);
}

KXRESULT CBackend::LoadResized(const Bytes& file, const LoadRequest& req, int32_t width,
                               int32_t height, Bitmap* out) const {
    if (!SizeAllowed(width, height, req.limits)) return KXE_IMAGEFILE;
    Bitmap bmp;
    KXRESULT r = DecodeAndTurn(this, file, req, width, height, false, &bmp);
    if (KX_FAILED(r)) return r;
    if (bmp.Width() == width && bmp.Height() == height) {
        *out = static_cast<Bitmap&&>(bmp);
        return KX_OK;
    }
    // Resampling works on 24 and 32 bits; a smaller depth was kept only when asked for.
    if (bmp.Bits() < 24) {
        Bitmap c;
        if (!ChangeDepth(bmp, 24, &c, req.limits)) return KXE_IMAGEFILE;
        bmp = static_cast<Bitmap&&>(c);
    }
    if (!Resize(bmp, width, height, out, req.limits, req.allocator)) return KXE_IMAGEFILE;
    return KX_OK;
}

uint64_t CBackend::InfoBytes(const Bytes&, uint64_t fileSize) const {
    return fileSize;
}

KXRESULT CBackend::ReadStamp(const Bytes&, const Limits&, Bitmap*) const {
    return KXE_IMAGEFILE;
}

KXRESULT CBackend::Save(const Bitmap&, uint32_t, uint32_t, ByteSink*) const {
    return KXE_IMAGEFILE;
}

const CBackend* FindBackend(const Bytes& file, const wchar_t* ext) {
    // Formats with a signature first; TGA, which has none, last.
    const CBackend* const order[] = {JpegBackend(), PngBackend(),      TiffBackend(), BmpBackend(),
                                     PsdBackend(),  MetafileBackend(), PcxBackend(),  TgaBackend()};
    for (const CBackend* b : order)
        if (b->Sniff(file, ext)) return b;
    return nullptr;
}

} // namespace imgfile
} // namespace kelp
