// Region resolution and the mask helpers.
#include "frame/region.h"

#include <algorithm>

#include "platform/companion.h"
#include "platform/raster.h"

namespace tz3 {
namespace {

// Below 0 becomes 0, then above max becomes max: defined even for an image with no rows.
int32_t ClampEdge(int32_t v, int32_t max) {
    if (v < 0) v = 0;
    if (v > max) v = max;
    return v;
}

// w - 1 without overflow for any width the header may claim.
int32_t LastIndex(int32_t size) { return static_cast<int32_t>(static_cast<int64_t>(size) - 1); }

}  // namespace

int32_t CheckMaskFits(const uint8_t *dib, const uint8_t *mask) {
    if (DibWidth(dib) == DibWidth(mask) && DibHeight(dib) == DibHeight(mask) && DibBitCount(mask) == 1) return 1;
    SetErrorStatus(TZ3_BAD_IMAGE);
    return 0;
}

OwnedBlock ClipPolygon(const Tz3Point *points, int32_t count, int32_t maxX, int32_t maxY, int32_t *x0,
                       int32_t *y0, int32_t *x1, int32_t *y1, int32_t inside) {
    // A polygon needs two points; a missing array is refused the same way rather than read.
    if (count < 2 || points == nullptr) {
        SetErrorStatus(TZ3_BAD_PARAMETER);
        return OwnedBlock();
    }
    OwnedBlock copy = AllocLocked(static_cast<uint64_t>(count) * sizeof(Tz3Point));
    if (!copy) return copy;
    auto *out = reinterpret_cast<Tz3Point *>(copy.bytes());
    for (int32_t i = 0; i < count; ++i) {
        // Points outside move onto the edge, so the shape bends there rather than being cut.
        const int32_t x = ClampEdge(points[i].x, maxX);
        const int32_t y = ClampEdge(points[i].y, maxY);
        out[i] = Tz3Point{x, y};
        *x0 = std::min(*x0, x);
        *y0 = std::min(*y0, y);
        *x1 = std::max(*x1, x);
        *y1 = std::max(*y1, y);
    }
    if (inside == 0) {
        *x0 = 0;
        *y0 = 0;
        *x1 = maxX;
        *y1 = maxY;
        return copy;
    }
    for (int32_t i = 0; i < count; ++i) {
        out[i].x -= *x0;
        out[i].y -= *y0;
    }
    const int32_t top = *y0;
    *y0 = maxY - *y1;
    *y1 = maxY - top;
    return copy;
}

Tz3Rect ClipRectCorners(int32_t left, int32_t top, int32_t right, int32_t bottom, int32_t maxX, int32_t maxY,
                        int32_t *x0, int32_t *y0, int32_t *x1, int32_t *y1, int32_t inside) {
    left = ClampEdge(left, maxX);
    right = ClampEdge(right, maxX);
    top = ClampEdge(top, maxY);
    bottom = ClampEdge(bottom, maxY);
    if (left > right) std::swap(left, right);
    if (top > bottom) std::swap(top, bottom);
    if (inside == 0) {
        *x0 = 0;
        *y0 = 0;
        *x1 = maxX;
        *y1 = maxY;
        return Tz3Rect{left, top, right, bottom};
    }
    *x0 = left;
    *x1 = right;
    *y0 = maxY - bottom;
    *y1 = maxY - top;
    return Tz3Rect{0, 0, right - left, bottom - top};
}

void ClampFourCoords(const uint8_t *dib, int32_t *p, int32_t *q, int32_t *r, int32_t *s) {
    const int32_t maxX = LastIndex(DibWidth(dib));
    const int32_t maxY = LastIndex(DibHeight(dib));
    *p = ClampEdge(*p, maxX);
    *r = ClampEdge(*r, maxX);
    *q = ClampEdge(*q, maxY);
    *s = ClampEdge(*s, maxY);
}

int32_t InvertMaskBits(DibHandle mask, int32_t stride) {
    LockedBlock lock(mask);
    if (!lock) return 0;
    uint8_t *dib = lock.bytes();
    const int32_t width = DibWidth(dib);
    const int32_t height = DibHeight(dib);
    uint8_t *bits = DibBits(dib);
    for (int32_t y = 0; y < height; ++y) {
        uint8_t *row = bits + static_cast<int64_t>(stride) * y;
        // Whole words from column 0 while the column is inside the image: pad bits flip too.
        for (int32_t x = 0; x < width; x += 32) {
            uint32_t word;
            std::memcpy(&word, row + x / 8, 4);
            word = ~word;
            std::memcpy(row + x / 8, &word, 4);
        }
    }
    return 1;
}

DibHandle MakeRegionMask(int32_t width, int32_t height, uint8_t kind, const Tz3Point *points, int32_t count,
                         int32_t l, int32_t t, int32_t r, int32_t b, int32_t inside) {
    if (width < 1 || height < 1) {
        SetErrorStatus(TZ3_BAD_PARAMETER);
        return nullptr;
    }
    const int32_t stride = DibRowBytes(1, width);
    const uint64_t size = static_cast<uint64_t>(static_cast<uint32_t>(stride)) * static_cast<uint64_t>(height) +
                          kMaskHeadBytes;
    BlockOwner mask;
    {
        OwnedBlock block = AllocLocked(size);
        if (!block) return nullptr;
        uint8_t *head = block.bytes();
        WriteU32(head, kHeaderBytes);
        WriteU32(head + kWidthOffset, static_cast<uint32_t>(width));
        WriteU32(head + kHeightOffset, static_cast<uint32_t>(height));
        WriteU16(head + kPlanesOffset, 1);
        WriteU16(head + kBitCountOffset, 1);
        WriteU32(head + kSizeImageOffset, static_cast<uint32_t>(static_cast<uint64_t>(stride) * height));
        // Entry 0 black, entry 1 white.
        head[44] = 255;
        head[45] = 255;
        head[46] = 255;
        mask = BlockOwner(block.Release());
    }
    int32_t drawn = 1;
    if (kind == kRegionPolygon) {
        drawn = PolygonToMask(mask.get(), points, count);
    } else if (kind == kRegionEllipse) {
        drawn = EllipseToMask(mask.get(), l, t, r, b);
    }
    if (drawn != 0 && inside == 0) drawn = InvertMaskBits(mask.get(), stride);
    if (drawn == 0) {
        SetErrorStatus(TZ3_DIALOG_FAILED);
        return nullptr;
    }
    return mask.Release();
}

bool ResolveRegion(const uint8_t *dib, const RegionArgs &args, ResolvedRegion &out) {
    const int32_t width = DibWidth(dib);
    const int32_t height = DibHeight(dib);
    const int32_t maxX = LastIndex(width);
    const int32_t maxY = LastIndex(height);
    RegionBox &box = out.box;
    box = RegionBox{0, 0, maxX, maxY};
    Tz3Rect draw{0, 0, 0, 0};
    switch (args.kind) {
        case kRegionMask: {
            if (args.mask == nullptr) {
                SetErrorStatus(TZ3_BAD_IMAGE);
                return false;
            }
            out.callerMask = LockedBlock(args.mask);
            if (!out.callerMask) {
                SetErrorStatus(TZ3_NO_MEMORY);
                return false;
            }
            const uint8_t *mask = out.callerMask.bytes();
            if (!CheckDibBlock(mask, out.callerMask.size()) || !CheckMaskFits(dib, mask)) return false;
            out.mask = MaskView{DibBits(mask), DibRowBytes(mask)};
            return true;
        }
        case kRegionWhole:
            return true;
        case kRegionPolygon:
            if (width < 1 || height < 1) break;
            box = RegionBox{maxX, maxY, 0, 0};
            out.points = ClipPolygon(args.points, args.count, maxX, maxY, &box.x0, &box.y0, &box.x1, &box.y1,
                                     args.inside);
            if (!out.points) return false;
            break;
        case kRegionEllipse:
            if (width < 1 || height < 1) break;
            draw = ClipRectCorners(args.rect.left, args.rect.top, args.rect.right, args.rect.bottom, maxX, maxY,
                                   &box.x0, &box.y0, &box.x1, &box.y1, args.inside);
            break;
        default:
            SetErrorStatus(TZ3_BAD_PARAMETER);
            return false;
    }
    // A shape on an image without pixels has no mask to draw; the size is refused as a parameter.
    if (width < 1 || height < 1) {
        SetErrorStatus(TZ3_BAD_PARAMETER);
        return false;
    }
    DibHandle made = MakeRegionMask(box.x1 - box.x0 + 1, box.y1 - box.y0 + 1, args.kind,
                                    reinterpret_cast<const Tz3Point *>(out.points.bytes()), args.count, draw.left,
                                    draw.top, draw.right, draw.bottom, args.inside);
    if (made == nullptr) return false;
    out.madeMask = OwnedBlock(made);
    if (!out.madeMask) {
        SetErrorStatus(TZ3_NO_MEMORY);
        return false;
    }
    const uint8_t *mask = out.madeMask.bytes();
    out.mask = MaskView{DibBits(mask), DibRowBytes(mask)};
    return true;
}

}  // namespace tz3
