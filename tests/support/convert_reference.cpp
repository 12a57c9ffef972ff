#include "support/convert_reference.h"

#include <cstring>
#include <utility>

#include "support/test_images.h"
#include "support/tone_reference.h"

namespace tz3test {
namespace {

struct Src {
    const std::vector<uint8_t> &d;
    int bits, w, h;
    size_t stride, pixels;
    bool is565;

    int Byte(size_t at) const { return at < d.size() ? d[at] : 0; }
    Colour Entry(int index) const {
        const size_t at = 40 + 4 * static_cast<size_t>(index);
        return Colour{Byte(at + 2), Byte(at + 1), Byte(at)};
    }
    int Index(int x, int y) const {
        const uint8_t *row = &d[pixels + stride * y];
        if (bits == 1) return (row[x / 8] >> (7 - x % 8)) & 1;
        if (bits == 4) return x % 2 == 0 ? row[x / 2] >> 4 : row[x / 2] & 15;
        return row[x];
    }
    Colour At(int x, int y) const {
        if (bits <= 8) return Entry(Index(x, y));
        const uint8_t *p = &d[pixels + stride * y + static_cast<size_t>(x) * (bits / 8)];
        if (bits == 16) return Expand16(static_cast<uint16_t>(p[0] | (p[1] << 8)), is565);
        return Colour{p[2], p[1], p[0]};
    }
};

int Luma(Colour c) {
    const double t0 = static_cast<float>(c.r) * FloatOf(0x3E991687);
    const double t1 = static_cast<float>(c.g) * FloatOf(0x3F1645A2);
    const double t2 = static_cast<float>(c.b) * FloatOf(0x3DE978D5);
    return Trunc(t0 + t1 + t2);
}

int Word555(Colour c) { return ((c.r * 31 / 255) << 10) | ((c.g * 31 / 255) << 5) | (c.b * 31 / 255); }

struct Out {
    std::vector<uint8_t> d;
    size_t stride, pixels;
    void Header(const Src &s, int bitCount, uint32_t clrUsed) {
        std::memset(d.data(), 0, 40);
        SetField32(d, 0, 40);
        SetField32(d, 4, static_cast<uint32_t>(s.w));
        SetField32(d, 8, static_cast<uint32_t>(s.h));
        d[12] = 1;
        d[14] = static_cast<uint8_t>(bitCount);
        SetField32(d, 20, static_cast<uint32_t>(stride * s.h));
        SetField32(d, 24, Field32(s.d, 24));
        SetField32(d, 28, Field32(s.d, 28));
        SetField32(d, 32, clrUsed);
    }
    void Entry(int i, int b, int g, int r) {
        d[40 + 4 * i] = static_cast<uint8_t>(b);
        d[41 + 4 * i] = static_cast<uint8_t>(g);
        d[42 + 4 * i] = static_cast<uint8_t>(r);
        d[43 + 4 * i] = 0;
    }
    void PutIndex(int bits, int x, int y, int index) {
        uint8_t *row = &d[pixels + stride * y];
        if (bits == 1) row[x / 8] |= static_cast<uint8_t>(index << (7 - x % 8));
        else if (bits == 4) row[x / 2] |= static_cast<uint8_t>(x % 2 == 0 ? index << 4 : index);
        else row[x] = static_cast<uint8_t>(index);
    }
};

// ---- The median cut, walked plane by plane ----

struct Box {
    int low[3], high[3];
    uint32_t count;
};

struct Cut {
    // Made only for a median cut: other paths do not pay for the cube.
    std::vector<uint32_t> hist;
    std::vector<uint8_t> map;
    uint32_t &Cell(int a0, int a1, int a2) { return hist[(a0 * 64 + a1) * 64 + a2]; }

    // Sum of the counters of the box's plane `c` on `axis`, the other axes over the box.
    uint64_t Plane(const Box &b, int axis, int c) {
        int lo[3] = {b.low[0], b.low[1], b.low[2]}, hi[3] = {b.high[0], b.high[1], b.high[2]};
        lo[axis] = hi[axis] = c;
        uint64_t sum = 0;
        for (int a0 = lo[0]; a0 <= hi[0]; ++a0)
            for (int a1 = lo[1]; a1 <= hi[1]; ++a1)
                for (int a2 = lo[2]; a2 <= hi[2]; ++a2) sum += Cell(a0, a1, a2);
        return sum;
    }

    void Split(Box &b, Box &first, Box &second) {
        for (int a = 0; a < 3; ++a)
            if (b.low[a] > b.high[a]) std::swap(b.low[a], b.high[a]);
        int l[3], h[3];
        for (int a = 0; a < 3; ++a) {
            l[a] = b.high[a];
            for (int c = b.low[a]; c <= b.high[a]; ++c)
                if (Plane(b, a, c) != 0) {
                    l[a] = c;
                    break;
                }
            h[a] = b.low[a];
            for (int c = b.high[a]; c >= b.low[a]; --c)
                if (Plane(b, a, c) != 0) {
                    h[a] = c;
                    break;
                }
        }
        uint32_t count = 0;
        for (int a0 = l[0]; a0 <= h[0]; ++a0)
            for (int a1 = l[1]; a1 <= h[1]; ++a1)
                for (int a2 = l[2]; a2 <= h[2]; ++a2) count += Cell(a0, a1, a2);
        b.count = count;
        const int d0 = h[0] - l[0], d1 = h[1] - l[1], d2 = h[2] - l[2];
        int axis;
        if (d0 < d1) axis = d1 < d2 ? 2 : 1;
        else axis = d0 < d2 ? 2 : 0;
        first = b;
        second = b;
        int m = b.high[axis];
        uint64_t sum = 0;
        for (int c = b.low[axis]; c <= b.high[axis]; ++c) {
            sum += Plane(b, axis, c);
            if (sum >= count / 2) {
                m = c;
                break;
            }
        }
        first.high[axis] = m;
        second.low[axis] = m < b.high[axis] ? m + 1 : m;
        const int a1 = first.low[axis], b1 = first.high[axis], a2 = second.low[axis], b2 = second.high[axis];
        if (a1 == b1) {
            if (a2 < b2 - 1) {
                first.high[axis] += 1;
                second.low[axis] += 1;
            }
        } else if (a2 == b2) {
            if (a1 < b1 - 1) {
                second.low[axis] -= 1;
                first.high[axis] -= 1;
            }
        }
    }

    // Makes the table of 2^n leaves into `colours` (blue, green, red each).
    void Build(int n, std::vector<Colour> &colours) {
        std::vector<Box> tree(9 * 256);
        tree[0] = Box{{0, 0, 0}, {63, 63, 63}, 0};
        for (int level = 0; level < n; ++level)
            for (int i = 0; i < (1 << level); ++i)
                Split(tree[256 * level + i], tree[256 * (level + 1) + 2 * i], tree[256 * (level + 1) + 2 * i + 1]);
        colours.clear();
        for (int i = 0; i < (1 << n); ++i) {
            const Box &b = tree[256 * n + i];
            uint32_t c = 0;
            for (int a0 = b.low[0]; a0 <= b.high[0]; ++a0)
                for (int a1 = b.low[1]; a1 <= b.high[1]; ++a1)
                    for (int a2 = b.low[2]; a2 <= b.high[2]; ++a2) {
                        c += Cell(a0, a1, a2);
                        map[(a0 * 64 + a1) * 64 + a2] = static_cast<uint8_t>(i);
                    }
            int colour[3];
            for (int a = 0; a < 3; ++a) {
                int m = (b.low[a] + b.high[a]) / 2;
                uint64_t sum = 0;
                for (int v = b.low[a]; v <= b.high[a]; ++v) {
                    sum += Plane(b, a, v);
                    if (sum >= c / 2) {
                        m = v;
                        break;
                    }
                }
                colour[a] = b.high[a] < 1 ? 0 : ReferenceLeafColour(m, b.high[a]);
            }
            colours.push_back(Colour{colour[2], colour[1], colour[0]});
        }
    }
};

// ---- The popularity count ----

struct CellRecord {
    int r, g, b;
    uint32_t count;
};

void Sift(std::vector<CellRecord> &v, int i, int last) {
    int c = 2 * i;
    while (c <= last) {
        if (c < last && v[c + 1].count < v[c].count) c += 1;
        if (v[i].count <= v[c].count) break;
        std::swap(v[i], v[c]);
        i = c;
        c = 2 * i;
    }
}

}  // namespace

int ReferenceLeafColour(int m, int high) {
    const double h = high;
    return static_cast<int>(((m / h) * h + 0.5) * 4.0);
}

std::vector<uint8_t> ReferenceConvert(const std::vector<uint8_t> &srcBytes, int32_t targetArg, int32_t fixedArg,
                                      int32_t ditherArg, int32_t thresholdArg) {
    const int target = static_cast<uint16_t>(targetArg);
    int fixed = fixedArg != 0 ? 1 : 0;
    const bool dither = ditherArg != 0;
    const int threshold = static_cast<uint8_t>(thresholdArg);
    const uint32_t biSize = Field32(srcBytes, 0);
    Src s{srcBytes, srcBytes[14], ImageWidth(srcBytes), ImageHeight(srcBytes), 0, 0, false};
    s.stride = RowBytes(s.bits, s.w);
    s.pixels = biSize + 4 * static_cast<size_t>(TableEntries(srcBytes));
    s.is565 = Is565(srcBytes);
    const int outBits = target == 80 ? 8 : target;
    Out o;
    o.stride = RowBytes(outBits, s.w);
    const bool widening = s.bits <= outBits;

    if (widening) {
        int paletteSize = static_cast<int>(TableEntries(srcBytes));
        if (s.bits >= 16 || target > 15) paletteSize = 0;
        const size_t table = target == 80 ? 1024 : 4 * static_cast<size_t>(paletteSize);
        o.pixels = biSize + table;
        o.d.assign(o.stride * s.h + o.pixels, 0);
        for (int y = 0; y < s.h; ++y)
            for (int x = 0; x < s.w; ++x) {
                uint8_t *row = &o.d[o.pixels + o.stride * y];
                if (target == 4 || target == 8) {
                    o.PutIndex(target, x, y, s.Index(x, y));
                } else if (target == 80) {
                    row[x] = static_cast<uint8_t>(Luma(s.At(x, y)));
                } else if (target == 16) {
                    const int w = Word555(s.At(x, y));
                    row[2 * x] = static_cast<uint8_t>(w);
                    row[2 * x + 1] = static_cast<uint8_t>(w >> 8);
                } else {
                    const Colour c = s.At(x, y);
                    uint8_t *p = row + static_cast<size_t>(x) * (target / 8);
                    p[0] = static_cast<uint8_t>(c.b);
                    p[1] = static_cast<uint8_t>(c.g);
                    p[2] = static_cast<uint8_t>(c.r);
                }
            }
        o.Header(s, outBits, target == 80 ? 0 : static_cast<uint32_t>(paletteSize));
        if (target == 80)
            for (int i = 0; i < 256; ++i) o.Entry(i, i, i, i);
        else if (target == 4 || target == 8)
            for (int i = 0; i < paletteSize; ++i) o.Entry(i, s.Byte(40 + 4 * i), s.Byte(41 + 4 * i), s.Byte(42 + 4 * i));
        return o.d;
    }

    // The reducing path.
    int entries = 0, paletteSize = 0;
    if (target == 8) {
        entries = fixed ? 216 : 256;
        paletteSize = 256;
    } else if (target == 4) {
        entries = paletteSize = 16;
    } else if (target == 1) {
        entries = paletteSize = 2;
        fixed = 1;
    } else if (target == 80) {
        entries = paletteSize = 256;
        fixed = 1;
    }
    o.pixels = biSize + 4 * static_cast<size_t>(entries);
    o.d.assign(o.stride * s.h + o.pixels, 0);

    if (target >= 16 && target != 80) {
        o.Header(s, target, 0);
        for (int y = 0; y < s.h; ++y)
            for (int x = 0; x < s.w; ++x) {
                const Colour c = s.At(x, y);
                uint8_t *p = &o.d[o.pixels + o.stride * y + static_cast<size_t>(x) * (target / 8)];
                if (target == 16) {
                    const int w = Word555(c);
                    p[0] = static_cast<uint8_t>(w);
                    p[1] = static_cast<uint8_t>(w >> 8);
                } else {
                    p[0] = static_cast<uint8_t>(c.b);
                    p[1] = static_cast<uint8_t>(c.g);
                    p[2] = static_cast<uint8_t>(c.r);
                }
            }
        return o.d;
    }

    std::vector<int> levels;
    Cut cut;
    if (fixed) {
        if (target == 8) {
            levels.resize(256);
            for (int i = 0; i < 256; ++i) levels[i] = static_cast<int>(i * 5.0 / 255.0 + 0.5);
        }
        o.Header(s, outBits, target == 8 ? 216 : 0);
        if (target == 8) {
            for (int i = 0; i < 6; ++i)
                for (int j = 0; j < 6; ++j)
                    for (int k = 0; k < 6; ++k)
                        o.Entry(36 * i + 6 * j + k, static_cast<int>(i / 5.0 * 255.0),
                                static_cast<int>(j / 5.0 * 255.0), static_cast<int>(k / 5.0 * 255.0));
        } else if (target == 4) {
            const int t[16][3] = {{0, 0, 0},       {0, 0, 127},   {0, 127, 0},   {0, 127, 127},
                                  {127, 0, 0},     {127, 0, 127}, {127, 127, 0}, {127, 127, 127},
                                  {192, 192, 192}, {0, 0, 255},   {0, 255, 0},   {0, 255, 255},
                                  {255, 0, 0},     {255, 0, 255}, {255, 255, 0}, {255, 255, 255}};
            for (int i = 0; i < 16; ++i) o.Entry(i, t[i][0], t[i][1], t[i][2]);
        } else if (target == 1) {
            o.Entry(0, 0, 0, 0);
            o.Entry(1, 255, 255, 255);
        } else {
            for (int i = 0; i < 256; ++i) o.Entry(i, i, i, i);
        }
    } else if (s.bits >= 16) {
        cut.hist.assign(64 * 64 * 64, 0);
        cut.map.assign(64 * 64 * 64, 0);
        for (int y = 0; y < s.h; ++y)
            for (int x = 0; x < s.w; ++x) {
                const Colour c = s.At(x, y);
                cut.Cell(c.b / 4, c.g / 4, c.r / 4) += 1;
            }
        std::vector<Colour> colours;
        cut.Build(target == 8 ? 8 : 4, colours);
        o.Header(s, outBits, 0);
        for (size_t i = 0; i < colours.size(); ++i)
            o.Entry(static_cast<int>(i), colours[i].b, colours[i].g, colours[i].r);
    } else {
        std::vector<CellRecord> cells(64, CellRecord{0, 0, 0, 0});
        for (int y = 0; y < s.h; ++y)
            for (int x = 0; x < s.w; ++x) {
                const Colour c = s.At(x, y);
                CellRecord &cell = cells[(c.r / 64) * 16 + (c.g / 64) * 4 + c.b / 64];
                cell.r = c.r;
                cell.g = c.g;
                cell.b = c.b;
                cell.count += 1;
            }
        for (int i = 31; i >= 0; --i) Sift(cells, i, 63);
        for (int last = 63; last >= 1; --last) {
            std::swap(cells[0], cells[last]);
            Sift(cells, 0, last - 1);
        }
        o.Header(s, outBits, 0);
        for (int i = 0; i < 16; ++i) o.Entry(i, cells[i].b, cells[i].g, cells[i].r);
    }

    // The row conversion.
    const auto mapColour = [&](int b, int g, int r) -> int {
        if (target == 1) return (b + g + r) / 3 >= threshold ? 1 : 0;
        if (target == 4) {
            int best = 195075, index = 0;
            for (int i = 0; i < paletteSize; ++i) {
                const int db = o.d[40 + 4 * i] - b, dg = o.d[41 + 4 * i] - g, dr = o.d[42 + 4 * i] - r;
                const int d = db * db + dg * dg + dr * dr;
                if (d == 0) return i;
                if (d < best) {
                    best = d;
                    index = i;
                }
            }
            return index;
        }
        if (!levels.empty()) return levels[r] + 6 * levels[g] + 36 * levels[b];
        return cut.map[((b / 4) * 64 + g / 4) * 64 + r / 4];
    };
    const size_t terms = 3 * static_cast<size_t>(s.w) + 30;
    std::vector<int> rowA(terms, 0), rowB(terms, 0);
    int *cur = rowA.data() + 3, *next = rowB.data() + 3;
    for (int y = 0; y < s.h; ++y) {
        std::vector<int> rc(3 * static_cast<size_t>(s.w));
        for (int x = 0; x < s.w; ++x) {
            const Colour c = s.At(x, y);
            rc[3 * x] = c.b;
            rc[3 * x + 1] = c.g;
            rc[3 * x + 2] = c.r;
        }
        if (target == 80) {
            for (int x = 0; x < s.w; ++x) o.d[o.pixels + o.stride * y + x] =
                static_cast<uint8_t>(Luma(Colour{rc[3 * x + 2], rc[3 * x + 1], rc[3 * x]}));
            continue;
        }
        std::swap(cur, next);
        for (int i = -3; i < 3 * s.w + 15; ++i) next[i] = 0;
        const bool forward = y % 2 == 0;
        for (int n = 0; n < s.w; ++n) {
            const int x = forward ? n : s.w - 1 - n;
            int v[3];
            for (int c = 0; c < 3; ++c) v[c] = Clamp(rc[3 * x + c] + cur[3 * x + c], 0, 255);
            const int index = mapColour(v[0], v[1], v[2]);
            o.PutIndex(outBits, x, y, index);
            if (!dither) continue;
            for (int c = 0; c < 3; ++c) {
                const int e = v[c] - o.d[40 + 4 * index + c];
                const int ahead = forward ? x + 1 : x - 1;
                const int behind = forward ? x - 1 : x + 1;
                next[3 * ahead + c] += e / 16;
                next[3 * x + c] += 5 * e / 16;
                next[3 * behind + c] += 3 * e / 16;
                if (fixed) cur[3 * ahead + c] += 7 * e / 16;
                else cur[3 * ahead + c] = 7 * e / 16;
            }
        }
    }
    return o.d;
}

}  // namespace tz3test
