// The object behind the transform's entries: one CFx2d lives on the stack for one call.
// It keeps the call's records, the placement of the scaled image in 24.8 fixed point, and
// one block of tables for the raster pass that walks the target.
#pragma once

#include <cstddef>
#include <cstdint>

#include <kelp/stdfx2d.h>
#include <kelp/stdfx_dib.h>
#include <kelp/stdfx_filter.h>
#include <kelp/stdfx_geometry.h>

namespace stdfx2d {

// One tap of a weight list: a source row (counted from the memory start) or column, and
// its weight.
struct Fx2dTap {
    int32_t index;
    int32_t weight;
};

// The weights of one target row or column. The biases are the part of the sum that a
// partly covered or transparent pixel gives to black (luma) and neutral chroma.
struct Fx2dTapList {
    int32_t count;
    Fx2dTap* taps;
    int32_t biasLuma;
    int32_t biasChroma;
};

// The memory row of a field's first line: -1 (the frame) gives 0. Bit 4 of bmiFormat
// swaps the answer.
int DIBFirstFieldRow(const KXBMINFOHEADER* h, int field);

class CFx2d {
public:
    explicit CFx2d(int mode);

    // ---- virtual operations, in dispatch order
    virtual ~CFx2d();
    virtual void SetQuality(int mode);
    virtual void SetFilter(int kind, int bits);
    virtual void SetSoftnessX(double softness);
    virtual void SetSoftnessY(double softness);
    virtual int TransformDIB(stdfx::CDIB& target, stdfx::CDIB& source, const FX2DPARAM& param,
                             int field);
    virtual int Transform(KXBMINFOHEADER* target, void* targetBits, KXBMINFOHEADER* const* sources,
                          void* const* sourceBits, const FX2DPARAM& param, int useBackground,
                          int composeAfter, int field);
    virtual bool CheckRGBFormats(const KXBMINFOHEADER* target, KXBMINFOHEADER* const* sources);
    virtual bool CheckYUVFormats(const KXBMINFOHEADER* target, KXBMINFOHEADER* const* sources);
    virtual bool CheckFormats(const KXBMINFOHEADER* target, KXBMINFOHEADER* const* sources);
    virtual bool IsIdentity();
    virtual void ComputeGeometry();
    virtual bool HasArea();
    virtual int BuildLookups();
    virtual void FreeLookups();
    virtual void SetWeightScale();
    virtual int BuildTaps();
    virtual void FreeTaps();
    virtual int RasterRGBNearest();
    virtual int RasterRGBFilter();
    virtual int RasterRGBSoft();
    virtual int RasterYUV444Nearest();
    virtual int RasterYUV444Filter();
    virtual int RasterYUV444Soft();
    virtual int RasterYUV422Nearest();
    virtual int RasterYUV422Filter();
    virtual int RasterYUV422FilterOld();
    virtual void ClearTarget();
    virtual int Render(KXBMINFOHEADER* target, void* targetBits, KXBMINFOHEADER* const* sources,
                       void* const* sourceBits, const FX2DPARAM& param, int useBackground,
                       int composeAfter, int field);

    // ---- accessors
    double ScaleX() const { return m_param.scaleX * m_ratioX; }
    double ScaleY() const { return m_param.scaleY * m_ratioY; }
    double OffsetX() const { return m_param.offsetX; }
    double OffsetY() const { return m_param.offsetY; }
    int Mode() const { return m_mode; }
    int RasterMode() const { return m_rasterMode; }
    int FilterBits() const { return m_filterBits; }
    double SoftnessX() const { return m_softnessX; }
    double SoftnessY() const { return m_softnessY; }
    const CFilter& Filter() const { return m_filter; }
    bool UseSse2() const;
    bool UseSse() const;

    // For tests: the placement and tables of the last set-up.
    const stdfx::CRectx248& SizeRect() const { return m_sizeRect; }
    const stdfx::CRectx248& PlacedRect() const { return m_placedRect; }
    const stdfx::CRect& PlacedBounds() const { return m_placedBounds; }
    const stdfx::CRect& Span() const { return m_span; }
    const stdfx::CRect& SourceClip() const { return m_sourceClip; }
    bool RowsIdentity() const { return m_rowsIdentity != 0; }
    const Fx2dTapList* RowTaps() const { return m_rowTaps; }
    const Fx2dTapList* ColumnTaps() const { return m_columnTaps; }
    const int32_t* ColumnLookup() const { return m_columnLookup; }
    const int32_t* RowLookup() const { return m_rowLookup; }
    // Prepares the call's state as Render does up to the tables, without rastering.
    void SetUpForTest(KXBMINFOHEADER* target, void* targetBits, KXBMINFOHEADER* const* sources,
                      void* const* sourceBits, const FX2DPARAM& param, int field);

protected:
    // What the raster paths read of this object.
    void MakeJob(struct RasterJob& job) const;
    int RasterNearest(bool yuv);
    int RasterFilter(bool yuv);
    int PrepareBackground(KXBMINFOHEADER* const* sources, void* const* sourceBits);
    int RenderIdentity();
    int Resample(stdfx::CDIB& out, const KXBMINFOHEADER* src, void* srcBits, int depth);
    void* AllocTables(size_t bytes);

    KXBMINFOHEADER* m_target = nullptr;
    KXBMINFOHEADER* m_source = nullptr;
    KXBMINFOHEADER* m_background = nullptr;
    void* m_targetBits = nullptr;
    void* m_sourceBits = nullptr;
    void* m_backgroundBits = nullptr;
    int32_t m_field = -1;
    FX2DPARAM m_param = {};
    int32_t m_alpha = 255;
    uint8_t m_useSse2 = 1;
    uint8_t m_useSse = 1;
    int32_t m_mode = 0;
    int32_t m_rasterMode = 0;
    CFilter m_filter;
    int32_t m_filterBits = 0;
    double m_softnessX = 0.0;
    double m_softnessY = 0.0;
    uint8_t* m_tables = nullptr;
    stdfx::CDIB m_image[3];
    int32_t* m_columnLookup = nullptr;
    int32_t* m_rowLookup = nullptr;
    int32_t* m_workRow = nullptr;
    Fx2dTapList* m_columnTaps = nullptr;
    Fx2dTapList* m_rowTaps = nullptr;
    int32_t m_weightShift = 0;
    int32_t m_weightBits = 14;
    uint8_t m_rowsIdentity = 0;
    stdfx::CRectx248 m_sizeRect;
    stdfx::CRect m_sizeBounds;
    stdfx::CRectx248 m_centredRect;
    stdfx::CRect m_placedBounds;
    stdfx::CRectx248 m_placedRect;
    stdfx::CRect m_imageBounds;
    stdfx::CRect m_targetRect;
    stdfx::CRect m_sourceRect;
    stdfx::CRect m_sourceClip;
    stdfx::CRect m_span;
    double m_ratioX = 1.0;
    double m_ratioY = 1.0;
};

} // namespace stdfx2d
