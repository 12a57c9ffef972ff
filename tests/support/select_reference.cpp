#include "support/select_reference.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>

#include "frame/region.h"
#include "support/test_images.h"

namespace tz3test {
namespace {

int Clamp(int v, int max) {
    return v < 0 ? 0 : v > max ? max : v;
}

bool Is565(const std::vector<uint8_t> &dib) {
    return Field32(dib, 16) == 3;
}

// Bit of a RegionMask at box column mx, box row my.
bool RefMaskBit(const std::vector<uint8_t> &mask, int mx, int my) {
    const size_t stride = RowBytes(1, static_cast<int>(Field32(mask, 4)));
    return (mask[48 + stride * my + mx / 8] >> (7 - mx % 8)) & 1;
}

// The table entry of an index, a byte beyond the image's bytes reading as 0.
void EntryOf(const std::vector<uint8_t> &dib, uint32_t index, uint8_t &r, uint8_t &g, uint8_t &b) {
    const size_t at = 40 + 4 * static_cast<size_t>(index);
    const auto byte = [&](size_t i) -> uint8_t { return i < dib.size() ? dib[i] : 0; };
    b = byte(at);
    g = byte(at + 1);
    r = byte(at + 2);
}

int IndexAt(const std::vector<uint8_t> &dib, size_t rowAt, int bits, int x) {
    if (bits == 1) return (dib[rowAt + x / 8] >> (7 - x % 8)) & 1;
    if (bits == 4) return x % 2 == 0 ? dib[rowAt + x / 2] >> 4 : dib[rowAt + x / 2] & 15;
    return dib[rowAt + x];
}

void OrIndex(std::vector<uint8_t> &dib, size_t rowAt, int bits, int x, int value) {
    if (bits == 1) {
        if (value & 1) dib[rowAt + x / 8] |= static_cast<uint8_t>(0x80 >> (x % 8));
    } else if (bits == 4) {
        dib[rowAt + x / 2] |= static_cast<uint8_t>(x % 2 == 0 ? value << 4 : value);
    } else {
        dib[rowAt + x] |= static_cast<uint8_t>(value);
    }
}

// A new image with the source's header and table, w x h zeroed pixels.
std::vector<uint8_t> EmptyLike(const std::vector<uint8_t> &src, int w, int h) {
    const int bits = src[14];
    const size_t head = PixelOffset(src);
    std::vector<uint8_t> out(head + RowBytes(bits, w) * static_cast<size_t>(h), 0);
    std::memcpy(out.data(), src.data(), head);
    SetField32(out, 4, static_cast<uint32_t>(w));
    SetField32(out, 8, static_cast<uint32_t>(h));
    SetField32(out, 20, RowBytes(bits, w) * static_cast<uint32_t>(h));
    return out;
}

float Weight(uint32_t bits) {
    return std::bit_cast<float>(bits);
}
double Entry(int i, uint32_t bits) {
    return static_cast<double>(static_cast<float>(i) * Weight(bits));
}

}  // namespace

RandomRegion DrawRegion(std::mt19937 &rng, int width, int height) {
    RandomRegion r;
    r.kind = 1 + static_cast<int32_t>(rng() % 3);
    r.inside = rng() % 2 == 0 ? 0 : static_cast<int32_t>(rng() % 3 == 0 ? 0x100 : 1);
    const auto coord = [&](int size) { return static_cast<int32_t>(rng() % (size + 6)) - 3; };
    if (r.kind == 2) {
        const int n = 2 + static_cast<int>(rng() % 5);
        for (int i = 0; i < n; ++i) r.points.push_back(Tz3Point{coord(width), coord(height)});
    } else if (r.kind == 3) {
        r.rect = Tz3Rect{coord(width), coord(height), coord(width), coord(height)};
    }
    return r;
}

RefRegion ReferenceRegion(int width, int height, const RandomRegion &region, bool wholeAsPolygon) {
    const int maxX = width - 1, maxY = height - 1;
    RefRegion out{0, 0, maxX, maxY, false, {}};
    int kind = region.kind;
    std::vector<Tz3Point> pts;
    Tz3Rect draw{0, 0, 0, 0};
    if (kind == 1) {
        if (!wholeAsPolygon) return out;
        pts = {{0, 0}, {0, maxY}, {maxX, maxY}, {maxX, 0}};
        kind = 2;
    } else if (kind == 2) {
        int bx0 = maxX, by0 = maxY, bx1 = 0, by1 = 0;
        for (const Tz3Point &p : region.points) {
            const Tz3Point c{Clamp(p.x, maxX), Clamp(p.y, maxY)};
            pts.push_back(c);
            bx0 = std::min(bx0, c.x);
            by0 = std::min(by0, c.y);
            bx1 = std::max(bx1, c.x);
            by1 = std::max(by1, c.y);
        }
        if (region.inside != 0) {
            for (Tz3Point &p : pts) {
                p.x -= bx0;
                p.y -= by0;
            }
            out = RefRegion{bx0, maxY - by1, bx1, maxY - by0, false, {}};
        }
    } else {
        int l = Clamp(region.rect.left, maxX), r = Clamp(region.rect.right, maxX);
        int t = Clamp(region.rect.top, maxY), b = Clamp(region.rect.bottom, maxY);
        if (l > r) std::swap(l, r);
        if (t > b) std::swap(t, b);
        if (region.inside != 0) {
            out = RefRegion{l, maxY - b, r, maxY - t, false, {}};
            draw = Tz3Rect{0, 0, r - l, b - t};
        } else {
            draw = Tz3Rect{l, t, r, b};
        }
    }
    DibHandle m = tz3::MakeRegionMask(out.x1 - out.x0 + 1, out.y1 - out.y0 + 1, static_cast<uint8_t>(kind),
                                      pts.data(), static_cast<int32_t>(pts.size()), draw.left, draw.top,
                                      draw.right, draw.bottom, region.inside);
    out.mask = FromBlock(m);
    Tz3GlobalFree(m);
    out.hasMask = true;
    return out;
}

uint8_t ReferenceNearestIndex(const std::vector<uint8_t> &dib, uint8_t red, uint8_t green, uint8_t blue) {
    uint32_t n = Field32(dib, 32);
    const int bits = dib[14];
    if (n == 0) n = bits == 1 ? 2 : bits == 4 ? 16 : bits == 8 ? 256 : 0;
    int best = 200000;
    uint32_t index = 0;
    for (uint32_t i = 0; i < n; ++i) {
        const int db = dib[40 + 4 * i] - blue, dg = dib[41 + 4 * i] - green, dr = dib[42 + 4 * i] - red;
        const int d = dr * dr + dg * dg + db * db;
        if (d < best) {
            best = d;
            index = i;
        }
    }
    return static_cast<uint8_t>(index);
}

RefPair ReferenceSelectImage(const std::vector<uint8_t> &src, const RandomRegion &region, int32_t red,
                             int32_t green, int32_t blue) {
    const int width = ImageWidth(src), height = ImageHeight(src), bits = src[14];
    const RefRegion box = ReferenceRegion(width, height, region, true);
    const int w = box.x1 - box.x0 + 1, h = box.y1 - box.y0 + 1;
    RefPair out{EmptyLike(src, w, h), box.mask};
    const auto fr = static_cast<uint8_t>(red), fg = static_cast<uint8_t>(green),
               fb = static_cast<uint8_t>(blue);
    const int index = ReferenceNearestIndex(src, fr, fg, fb);
    const size_t srcStride = RowBytes(bits, width), dstStride = RowBytes(bits, w);
    const size_t srcAt = PixelOffset(src), dstAt = PixelOffset(out.image);
    for (int y = box.y0; y <= box.y1; ++y) {
        for (int x = box.x0; x <= box.x1; ++x) {
            const int mx = x - box.x0, my = y - box.y0;
            const bool set = RefMaskBit(box.mask, mx, my);
            const size_t s = srcAt + srcStride * y, d = dstAt + dstStride * my;
            if (bits <= 8) {
                OrIndex(out.image, d, bits, mx, set ? IndexAt(src, s, bits, x) : index);
            } else if (bits == 16) {
                uint16_t word = WordAt(src, s + 2 * x);
                if (!set) {
                    word = Is565(src) ? static_cast<uint16_t>(((fr * 31 / 255) << 11) |
                                                              ((fg * 63 / 255) << 5) | (fb * 31 / 255))
                                      : static_cast<uint16_t>(((fr * 31 / 255) << 10) |
                                                              ((fg * 31 / 255) << 5) | (fb * 31 / 255));
                }
                out.image[d + 2 * mx] = static_cast<uint8_t>(word);
                out.image[d + 2 * mx + 1] = static_cast<uint8_t>(word >> 8);
            } else {
                const int n = bits / 8;
                for (int i = 0; i < n; ++i) {
                    const uint8_t fill = i == 0 ? fb : i == 1 ? fg : i == 2 ? fr : 0;
                    out.image[d + n * mx + i] = set ? src[s + n * x + i] : fill;
                }
            }
        }
    }
    return out;
}

int32_t ReferenceLuma(uint8_t r, uint8_t g, uint8_t b) {
    return static_cast<int32_t>(Entry(r, 0x3E991687) + Entry(g, 0x3F1645A2) + Entry(b, 0x3DE978D5));
}
int32_t ReferenceCr(uint8_t r, uint8_t g, uint8_t b) {
    return static_cast<int32_t>(Entry(r, 0x3F000000) + Entry(g, 0xBED65E89) + Entry(b, 0xBDA685DB) + 128.0);
}
int32_t ReferenceCb(uint8_t r, uint8_t g, uint8_t b) {
    return static_cast<int32_t>(Entry(r, 0xBE2CCA2E) + Entry(g, 0xBEA99AE9) + Entry(b, 0x3F000000) + 128.0);
}

RefPair ReferenceAutoSelectImage(const std::vector<uint8_t> &src, const RandomRegion &region, int32_t keyRed,
                                 int32_t keyGreen, int32_t keyBlue, int32_t metric, int32_t tolerance) {
    const int width = ImageWidth(src), height = ImageHeight(src), bits = src[14];
    const RefRegion box = ReferenceRegion(width, height, region, false);
    const int w = box.x1 - box.x0 + 1, h = box.y1 - box.y0 + 1;
    RefPair out{EmptyLike(src, w, h), {}};
    // An all-clear RegionMask of the box's size.
    out.mask.assign(48 + RowBytes(1, w) * static_cast<size_t>(h), 0);
    SetField32(out.mask, 0, 40);
    SetField32(out.mask, 4, static_cast<uint32_t>(w));
    SetField32(out.mask, 8, static_cast<uint32_t>(h));
    out.mask[12] = 1;
    out.mask[14] = 1;
    SetField32(out.mask, 20, RowBytes(1, w) * static_cast<uint32_t>(h));
    out.mask[44] = out.mask[45] = out.mask[46] = 255;
    const auto kr = static_cast<uint8_t>(keyRed), kg = static_cast<uint8_t>(keyGreen),
               kb = static_cast<uint8_t>(keyBlue);
    const int tol = static_cast<uint8_t>(tolerance);
    const bool is565 = Is565(src);
    const size_t srcStride = RowBytes(bits, width), dstStride = RowBytes(bits, w),
                 maskStride = RowBytes(1, w);
    const size_t srcAt = PixelOffset(src), dstAt = PixelOffset(out.image);
    for (int y = box.y0; y <= box.y1; ++y) {
        for (int x = box.x0; x <= box.x1; ++x) {
            const int mx = x - box.x0, my = y - box.y0;
            if (box.hasMask && !RefMaskBit(box.mask, mx, my)) continue;
            const size_t s = srcAt + srcStride * y, d = dstAt + dstStride * my;
            uint8_t r, g, b;
            if (bits <= 8) {
                const int index = IndexAt(src, s, bits, x);
                EntryOf(src, static_cast<uint32_t>(index), r, g, b);
                OrIndex(out.image, d, bits, mx, index);
            } else if (bits == 16) {
                const uint16_t word = WordAt(src, s + 2 * x);
                b = static_cast<uint8_t>((word & 31) * 255 / 31);
                if (is565) {
                    r = static_cast<uint8_t>(((word >> 11) & 31) * 255 / 31);
                    g = static_cast<uint8_t>(((word >> 5) & 63) * 255 / 63);
                } else {
                    r = static_cast<uint8_t>(((word >> 10) & 31) * 255 / 31);
                    g = static_cast<uint8_t>(((word >> 5) & 31) * 255 / 31);
                }
                const uint16_t packed = is565 ? static_cast<uint16_t>(((r * 31 / 255) << 11) |
                                                                      ((g * 63 / 255) << 5) | (b * 31 / 255))
                                              : static_cast<uint16_t>(((r * 31 / 255) << 10) |
                                                                      ((g * 31 / 255) << 5) | (b * 31 / 255));
                out.image[d + 2 * mx] = static_cast<uint8_t>(packed);
                out.image[d + 2 * mx + 1] = static_cast<uint8_t>(packed >> 8);
            } else {
                const int n = bits / 8;
                b = src[s + n * x];
                g = src[s + n * x + 1];
                r = src[s + n * x + 2];
                out.image[d + n * mx] = b;
                out.image[d + n * mx + 1] = g;
                out.image[d + n * mx + 2] = r;
            }
            bool selected;
            if (metric == 0) {
                selected = std::abs(b - kb) + std::abs(g - kg) + std::abs(r - kr) <= 3 * tol;
            } else if (metric == 1) {
                selected = std::abs(ReferenceCr(r, g, b) - ReferenceCr(kr, kg, kb)) +
                               std::abs(ReferenceCb(r, g, b) - ReferenceCb(kr, kg, kb)) <=
                           2 * tol;
            } else {
                selected = std::abs(ReferenceLuma(r, g, b) - ReferenceLuma(kr, kg, kb)) <= tol;
            }
            if (selected) out.mask[48 + maskStride * my + mx / 8] |= static_cast<uint8_t>(0x80 >> (mx % 8));
        }
    }
    return out;
}

}  // namespace tz3test
