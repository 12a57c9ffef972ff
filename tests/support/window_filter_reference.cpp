#include "support/window_filter_reference.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include "support/tone_reference.h"

namespace tz3test {
namespace {

// One image as the references read it: pixel (x, y) of bottom-up row y.
struct Image {
    const Bytes &d;
    int bits, w, h;
    size_t stride, at;
    bool is565;
    uint8_t toIndex[256] = {};

    explicit Image(const Bytes &dib)
        : d(dib),
          bits(dib[14]),
          w(ImageWidth(dib)),
          h(ImageHeight(dib)),
          stride(RowBytes(dib[14], ImageWidth(dib))),
          at(PixelOffset(dib)),
          is565(bits == 16 && Is565(dib)) {
        // The gray map's second half: the entry that holds each level, entries taken in order.
        const uint32_t n = std::min<uint32_t>(TableEntries(dib), 256);
        for (uint32_t i = 0; i < n; ++i) toIndex[dib[40 + 4 * i]] = static_cast<uint8_t>(i);
    }
    size_t Offset(int x, int y) const { return at + stride * y + static_cast<size_t>(x) * (bits / 8); }
    // The three channels; an 8-bit gray image gives its level (the entry's blue) in all three.
    Colour Get(int x, int y) const {
        const size_t o = Offset(x, y);
        if (bits == 8) {
            const int level = d[40 + 4 * d[o]];
            return Colour{level, level, level};
        }
        if (bits == 16) return Expand16(static_cast<uint16_t>(d[o] | (d[o + 1] << 8)), is565);
        return Colour{d[o + 2], d[o + 1], d[o]};
    }
    // Index of a palette image's pixel.
    int Index(int x, int y) const {
        const size_t rowAt = at + stride * y;
        if (bits == 1) return (d[rowAt + x / 8] >> (7 - x % 8)) & 1;
        if (bits == 4) return x % 2 == 0 ? d[rowAt + x / 2] >> 4 : d[rowAt + x / 2] & 15;
        return d[rowAt + x];
    }
};

void PutIndex(Bytes &out, const Image &img, int x, int y, int index) {
    const size_t rowAt = img.at + img.stride * y;
    if (img.bits == 1) {
        const auto bit = static_cast<uint8_t>(0x80 >> (x % 8));
        out[rowAt + x / 8] =
            static_cast<uint8_t>(index != 0 ? out[rowAt + x / 8] | bit : out[rowAt + x / 8] & ~bit);
    } else if (img.bits == 4) {
        uint8_t &b = out[rowAt + x / 2];
        b = x % 2 == 0 ? static_cast<uint8_t>((b & 0x0F) | (index << 4))
                       : static_cast<uint8_t>((b & 0xF0) | index);
    } else {
        out[rowAt + x] = static_cast<uint8_t>(index);
    }
}

// Stores a colour: 8-bit gray through the entry of its level, 16-bit packed, 24 and 32 bits as
// bytes (the fourth byte kept).
void Put(Bytes &out, const Image &img, int x, int y, Colour c) {
    const size_t o = img.Offset(x, y);
    if (img.bits == 8) {
        out[o] = img.toIndex[c.b];
    } else if (img.bits == 16) {
        const uint16_t word = Pack16(c, img.is565);
        out[o] = static_cast<uint8_t>(word);
        out[o + 1] = static_cast<uint8_t>(word >> 8);
    } else {
        out[o] = static_cast<uint8_t>(c.b);
        out[o + 1] = static_cast<uint8_t>(c.g);
        out[o + 2] = static_cast<uint8_t>(c.r);
    }
}

// The clone: the caller's bytes with biSizeImage rewritten.
Bytes Clone(const Bytes &src) {
    Bytes out = src;
    SetField32(out, 20, RowBytes(src[14], ImageWidth(src)) * static_cast<uint32_t>(ImageHeight(src)));
    return out;
}

int Channel(const Colour &c, int k) {
    return k == 0 ? c.r : k == 1 ? c.g : c.b;
}
void SetChannel(Colour &c, int k, int v) {
    (k == 0 ? c.r : k == 1 ? c.g : c.b) = v;
}

void BubbleSort(int *v, int n) {
    for (int i = 0; i < n - 1; ++i) {
        for (int j = 0; j < n - 1 - i; ++j) {
            if (v[j] > v[j + 1]) std::swap(v[j], v[j + 1]);
        }
    }
}

}  // namespace

PixelSelected AllPixels() {
    return [](int, int) { return true; };
}

PixelSelected BoxMaskBits(const RefBox &box, const Bytes &mask) {
    return [box, mask](int x, int y) {
        const int mx = x - box.x0, my = y - box.y0;
        if (mx < 0 || my < 0 || mx >= ImageWidth(mask) || my >= ImageHeight(mask)) return false;
        return MaskBit(mask, mx, my);
    };
}

RefBox WholeBox(const Bytes &src) {
    return RefBox{0, 0, ImageWidth(src) - 1, ImageHeight(src) - 1};
}

Bytes RefShade(const Bytes &src, const RefBox &box, const PixelSelected &selected, int32_t radius) {
    int r = static_cast<uint8_t>(radius);
    if (r > 20) r = 20;
    if (r == 0) r = 1;
    const Image img(src);
    Bytes out = Clone(src);
    for (int y = box.y0; y <= box.y1; ++y) {
        for (int x = box.x0; x <= box.x1; ++x) {
            if (!selected(x, y)) continue;
            int sum[3] = {0, 0, 0};
            int n = 0;
            for (int wy = y - r; wy <= y + r; ++wy) {
                for (int wx = x - r; wx <= x + r; ++wx) {
                    if (wx < 0 || wy < 0 || wx >= img.w || wy >= img.h) continue;
                    const Colour c = img.Get(wx, wy);
                    for (int k = 0; k < 3; ++k) sum[k] += Channel(c, k);
                    ++n;
                }
            }
            Colour mean{};
            for (int k = 0; k < 3; ++k) SetChannel(mean, k, std::min(sum[k] / n, 255));
            Put(out, img, x, y, mean);
        }
    }
    return out;
}

Bytes RefMosaic(const Bytes &src, const RefBox &box, const PixelSelected &selected, int32_t tileWidth,
                int32_t tileHeight) {
    const long long tw = tileWidth < 1 ? 1 : tileWidth;
    const long long th = tileHeight < 1 ? 1 : tileHeight;
    const Image img(src);
    Bytes out = Clone(src);
    const uint32_t entries = TableEntries(src);
    // A table entry's byte; beyond the block it reads as 0.
    const auto entryByte = [&](int index, int k) -> int {
        const size_t at = 40 + 4 * static_cast<size_t>(index) + k;
        return at < src.size() ? src[at] : 0;
    };
    for (long long ty = box.y0; ty <= box.y1; ty += th) {
        for (long long tx = box.x0; tx <= box.x1; tx += tw) {
            const int w = static_cast<int>(tx + tw > img.w ? img.w - tx : tw);
            const int h = static_cast<int>(ty + th > img.h ? img.h - ty : th);
            const long long count = static_cast<long long>(w) * h;
            int index = 0;
            Colour mean{};
            if (img.bits == 1) {
                long long ones = 0, zeros = 0;
                for (int y = 0; y < h; ++y) {
                    for (int x = 0; x < w; ++x)
                        (img.Index(static_cast<int>(tx) + x, static_cast<int>(ty) + y) ? ones : zeros)++;
                }
                index = ones > zeros ? 1 : 0;
            } else if (img.bits <= 8) {
                long long sb = 0, sg = 0, sr = 0;
                for (int y = 0; y < h; ++y) {
                    for (int x = 0; x < w; ++x) {
                        const int i = img.Index(static_cast<int>(tx) + x, static_cast<int>(ty) + y);
                        sb += entryByte(i, 0);
                        sg += entryByte(i, 1);
                        sr += entryByte(i, 2);
                    }
                }
                const int mr = static_cast<int>(sr / count), mg = static_cast<int>(sg / count),
                          mb = static_cast<int>(sb / count);
                int best = 200000;
                for (uint32_t i = 0; i < entries; ++i) {
                    const int dr = entryByte(static_cast<int>(i), 2) - mr;
                    const int dg = entryByte(static_cast<int>(i), 1) - mg;
                    const int db = entryByte(static_cast<int>(i), 0) - mb;
                    const int dist = dr * dr + dg * dg + db * db;
                    if (dist < best) {
                        best = dist;
                        index = static_cast<int>(i);
                    }
                }
            } else {
                long long sum[3] = {0, 0, 0};
                for (int y = 0; y < h; ++y) {
                    for (int x = 0; x < w; ++x) {
                        const Colour c = img.Get(static_cast<int>(tx) + x, static_cast<int>(ty) + y);
                        for (int k = 0; k < 3; ++k) sum[k] += Channel(c, k);
                    }
                }
                for (int k = 0; k < 3; ++k) SetChannel(mean, k, static_cast<int>(sum[k] / count));
            }
            for (int y = 0; y < h; ++y) {
                for (int x = 0; x < w; ++x) {
                    const int px = static_cast<int>(tx) + x, py = static_cast<int>(ty) + y;
                    if (!selected(px, py)) continue;
                    if (img.bits <= 8) {
                        PutIndex(out, img, px, py, index);
                    } else {
                        Put(out, img, px, py, mean);
                    }
                }
            }
        }
    }
    return out;
}

Bytes RefOutline(const Bytes &src, const RefBox &box, const PixelSelected &selected, int32_t channel,
                 int32_t op, int32_t gain) {
    static const int kA[3][9] = {
        {0, 0, 0, 0, 1, -1, 0, 0, 0}, {-1, 0, 1, -2, 0, 2, -1, 0, 1}, {0, 0, 0, 0, 1, 0, 0, 0, -1}};
    static const int kB[3][9] = {
        {0, 0, 0, 0, 1, 0, 0, -1, 0}, {-1, -2, -1, 0, 0, 0, 1, 2, 1}, {0, 0, 0, 0, 0, 1, 0, -1, 0}};
    const int opByte = static_cast<uint8_t>(op);
    const int which = opByte == 0 ? 0 : opByte == 2 ? 1 : 2;
    int g = static_cast<uint8_t>(gain);
    if (g > 100) g = 100;
    const float gainF = static_cast<float>(g);
    const int ch = static_cast<uint8_t>(channel);
    const Image img(src);
    Bytes out = Clone(src);
    int last = 0;
    for (int y = box.y0; y <= box.y1; ++y) {
        for (int x = box.x0; x <= box.x1; ++x) {
            if (!selected(x, y)) continue;
            int result = last;
            if (img.bits == 8 || ch <= 3) {
                int gx = 0, gy = 0;
                const int rows[3] = {y + 1, y, y - 1};
                for (int r = 0; r < 3; ++r) {
                    for (int c = 0; c < 3; ++c) {
                        const int a = kA[which][3 * r + c], b = kB[which][3 * r + c];
                        if (a == 0 && b == 0) continue;
                        const int sx = std::clamp(x + c - 1, 0, img.w - 1);
                        const int sy = std::clamp(rows[r], 0, img.h - 1);
                        const Colour col = img.Get(sx, sy);
                        int v;
                        if (img.bits == 8) {
                            v = col.b;
                        } else if (ch == 0) {
                            v = RefLuma(col.r, col.g, col.b);
                        } else {
                            v = ch == 1 ? col.r : ch == 2 ? col.g : col.b;
                        }
                        gx += a * v;
                        gy += b * v;
                    }
                }
                const int q = gx * gx + gy * gy;
                const double scaled = std::sqrt(static_cast<double>(q)) * static_cast<double>(gainF);
                result = std::clamp(static_cast<int>(scaled), 0, 255);
            }
            last = result;
            const size_t o = img.Offset(x, y);
            if (img.bits == 8) {
                out[o] = img.toIndex[result];
            } else if (img.bits == 16) {
                const int p = result * 31 / 255;
                const int word =
                    img.is565 ? (p << 11) | ((result * 63 / 255) << 5) | p : (p << 10) | (p << 5) | p;
                out[o] = static_cast<uint8_t>(word);
                out[o + 1] = static_cast<uint8_t>(word >> 8);
            } else {
                out[o] = out[o + 1] = out[o + 2] = static_cast<uint8_t>(result);
            }
        }
    }
    return out;
}

Bytes RefRemoveNoise(const Bytes &src, const RefBox &box, const PixelSelected &selected, int32_t method,
                     int32_t level) {
    const int m = static_cast<uint8_t>(method);
    const int t = static_cast<uint8_t>(255 - static_cast<uint8_t>(level));
    const Image img(src);
    Bytes out = Clone(src);
    if (m > 1) return out;
    for (int y = box.y0; y <= box.y1; ++y) {
        for (int x = box.x0; x <= box.x1; ++x) {
            if (!selected(x, y)) continue;
            if (m == 1) {
                const Colour own = img.Get(x, y);
                Colour next = own;
                bool flagged[3] = {false, false, false};
                for (int k = 0; k < 3; ++k) {
                    int list[9];
                    int n = 0;
                    for (int wy = y - 1; wy <= y + 1; ++wy) {
                        for (int wx = x - 1; wx <= x + 1; ++wx) {
                            if (wx < 0 || wy < 0 || wx >= img.w || wy >= img.h || (wx == x && wy == y))
                                continue;
                            list[n++] = Channel(img.Get(wx, wy), k);
                        }
                    }
                    for (int i = 0; i < n; ++i) {
                        if (std::abs(list[i] - Channel(own, k)) > t) flagged[k] = true;
                    }
                    if (flagged[k]) {
                        BubbleSort(list, n);
                        SetChannel(next, k, list[n / 2]);
                    }
                }
                const size_t o = img.Offset(x, y);
                if (img.bits == 8) {
                    if (flagged[0]) out[o] = img.toIndex[next.b];
                } else if (img.bits == 16) {
                    if (flagged[0] || flagged[1] || flagged[2]) Put(out, img, x, y, next);
                } else {
                    if (flagged[2]) out[o] = static_cast<uint8_t>(next.b);
                    if (flagged[1]) out[o + 1] = static_cast<uint8_t>(next.g);
                    if (flagged[0]) out[o + 2] = static_cast<uint8_t>(next.r);
                }
                continue;
            }
            // Method 0.
            if (img.bits == 8) {
                int list[9];
                int n = 0;
                for (int wy = y - 1; wy <= y + 1; ++wy) {
                    for (int wx = x - 1; wx <= x + 1; ++wx) {
                        if (wx < 0 || wy < 0 || wx >= img.w || wy >= img.h) continue;
                        list[n++] = img.Get(wx, wy).b;
                    }
                }
                BubbleSort(list, n);
                out[img.Offset(x, y)] = static_cast<uint8_t>(list[n / 2]);
                continue;
            }
            uint32_t keys[9];
            int n = 0;
            for (int wy = y - 1; wy <= y + 1; ++wy) {
                for (int wx = x - 1; wx <= x + 1; ++wx) {
                    if (wx < 0 || wy < 0 || wx >= img.w || wy >= img.h) continue;
                    const Colour c = img.Get(wx, wy);
                    const int dx = wx - x, dy = wy - y;
                    keys[n++] = static_cast<uint32_t>(RefLuma(c.r, c.g, c.b)) |
                                (static_cast<uint32_t>((dy + 4) * 9 + (dx + 4)) << 8);
                }
            }
            for (int i = 0; i < n - 1; ++i) {
                for (int j = 0; j < n - 1 - i; ++j) {
                    if ((keys[j] & 0xFF) > (keys[j + 1] & 0xFF)) std::swap(keys[j], keys[j + 1]);
                }
            }
            const int k = static_cast<int>(keys[n / 2] >> 8);
            const int dy = k / 9 - 4, dx = k % 9 - 4;
            const size_t from = img.Offset(x + dx, y + dy), to = img.Offset(x, y);
            const int bytes = img.bits == 16 ? 2 : 3;
            for (int i = 0; i < bytes; ++i) out[to + i] = src[from + i];
        }
    }
    return out;
}

}  // namespace tz3test
