// Written straight from the resize rules: scales and mapping, runs, the walk, replication, corner
// values, the tile painting and the mask.
#include "support/resize_reference.h"

#include <cmath>
#include <cstring>

#include "support/test_images.h"

namespace tz3test {
namespace {

int32_t Trunc(double v) {
    return static_cast<int32_t>(v);
}

int MapT(long i, float s) {
    return Trunc(static_cast<double>(static_cast<float>(i)) * static_cast<double>(s) + 0.5);
}

struct RefRun {
    long n;
    int start, length;
};

RefRun RunAt(long i, float s, int size) {
    RefRun r{1, MapT(i, s), 0};
    int end;
    if (s >= 1.0f) {
        end = MapT(i + 1, s) < size ? MapT(i + 1, s) : size;
    } else {
        long n = 1;
        while (!(MapT(i + n, s) != MapT(i, s) || MapT(i + n, s) >= size)) ++n;
        r.n = n;
        end = MapT(i + n, s);
    }
    r.length = end - r.start < 1 ? 1 : end - r.start;
    return r;
}

struct Image {
    std::vector<uint8_t> &d;
    int bits, width, height;
    size_t offset, stride;

    uint8_t *Row(int y) { return d.data() + offset + stride * static_cast<size_t>(y); }
    uint32_t Raw(int x, int y) {
        uint8_t *row = Row(y);
        switch (bits) {
            case 1:
                return (row[x / 8] >> (7 - x % 8)) & 1;
            case 4:
                return x % 2 == 0 ? row[x / 2] >> 4 : row[x / 2] & 15;
            case 8:
                return row[x];
            case 16:
                return row[2 * x] | (row[2 * x + 1] << 8);
            case 24:
                return row[3 * x] | (row[3 * x + 1] << 8) | (row[3 * x + 2] << 16);
            default:
                return row[4 * x] | (row[4 * x + 1] << 8) | (row[4 * x + 2] << 16) |
                       (static_cast<uint32_t>(row[4 * x + 3]) << 24);
        }
    }
    void PutRaw(int x, int y, uint32_t v) {
        uint8_t *row = Row(y);
        switch (bits) {
            case 1:
                row[x / 8] |= static_cast<uint8_t>(v << (7 - x % 8));
                break;
            case 4:
                row[x / 2] |= static_cast<uint8_t>(x % 2 == 0 ? v << 4 : v);
                break;
            case 8:
                row[x] = static_cast<uint8_t>(v);
                break;
            case 16:
                row[2 * x] = static_cast<uint8_t>(v);
                row[2 * x + 1] = static_cast<uint8_t>(v >> 8);
                break;
            case 24:
                for (int k = 0; k < 3; ++k) row[3 * x + k] = static_cast<uint8_t>(v >> (8 * k));
                break;
            default:
                for (int k = 0; k < 4; ++k) row[4 * x + k] = static_cast<uint8_t>(v >> (8 * k));
                break;
        }
    }
};

Image View(std::vector<uint8_t> &d) {
    const int bits = WordAt(d, 14);
    return Image{d, bits, ImageWidth(d), ImageHeight(d), PixelOffset(d), RowBytes(bits, ImageWidth(d))};
}

bool GrayPalette(const std::vector<uint8_t> &d) {
    if (WordAt(d, 14) != 8) return false;
    const uint32_t used = Field32(d, 32);
    if (used != 0 && used != 256) return false;
    int seen[256] = {};
    for (int i = 0; i < 256; ++i) {
        const uint8_t *e = &d[40 + 4 * i];
        if (e[0] != e[1] || e[0] != e[2]) return false;
        seen[e[0]]++;
    }
    for (int v : seen)
        if (v != 1) return false;
    return true;
}

}  // namespace

ResizedImage ResizeReference(const std::vector<uint8_t> &srcIn, const std::vector<uint8_t> *maskIn,
                             int newWidth, int newHeight, bool interpolate) {
    std::vector<uint8_t> src = srcIn;
    Image s = View(src);
    // New image: header and table of the source, new size, zero rows.
    ResizedImage out;
    out.image.assign(s.offset + RowBytes(s.bits, newWidth) * static_cast<size_t>(newHeight), 0);
    std::memcpy(out.image.data(), src.data(), s.offset);
    SetField32(out.image, 4, static_cast<uint32_t>(newWidth));
    SetField32(out.image, 8, static_cast<uint32_t>(newHeight));
    SetField32(out.image, 20, RowBytes(s.bits, newWidth) * static_cast<uint32_t>(newHeight));
    std::vector<uint8_t> mask;
    if (maskIn != nullptr) {
        mask = *maskIn;
        const size_t moff = PixelOffset(mask);
        out.mask.assign(moff + RowBytes(1, newWidth) * static_cast<size_t>(newHeight), 0);
        std::memcpy(out.mask.data(), mask.data(), moff);
        SetField32(out.mask, 4, static_cast<uint32_t>(newWidth));
        SetField32(out.mask, 8, static_cast<uint32_t>(newHeight));
        SetField32(out.mask, 20, RowBytes(1, newWidth) * static_cast<uint32_t>(newHeight));
    }
    Image t = View(out.image);
    const int W = s.width, H = s.height;
    if (W < 1 || H < 1) return out;
    const float sx = static_cast<float>(newWidth) / static_cast<float>(W);
    const float sy = static_cast<float>(newHeight) / static_cast<float>(H);

    const bool is565 = s.bits == 16 && Field32(src, 16) == 3 && Field32(src, 40) == 0xF800;
    const bool average =
        interpolate && (s.bits == 16 || s.bits == 24 || s.bits == 32 || (s.bits == 8 && GrayPalette(src)));
    const int channels = s.bits == 8 ? 1 : 3;
    // Channel c of source pixel (x, y): the gray level, or blue, green, red.
    auto S = [&](int x, int y, int c) -> int {
        const uint32_t v = s.Raw(x, y);
        if (s.bits == 8) return src[40 + 4 * v];  // rgbBlue of the entry: its level
        if (s.bits == 16) {
            const int shifts565[3] = {0, 5, 11}, shifts555[3] = {0, 5, 10};
            const int maxes565[3] = {31, 63, 31};
            const int shift = is565 ? shifts565[c] : shifts555[c];
            const int maxv = is565 ? maxes565[c] : 31;
            return static_cast<int>(((v >> shift) & static_cast<uint32_t>(maxv)) * 255 / maxv);
        }
        return static_cast<int>((v >> (8 * c)) & 255);
    };
    auto Put = [&](int x, int y, const int *c) {
        if (s.bits == 8) {
            for (int i = 0; i < 256; ++i)
                if (src[40 + 4 * i] == c[0]) t.PutRaw(x, y, static_cast<uint32_t>(i));
        } else if (s.bits == 16) {
            const uint32_t b = c[0] * 31u / 255, g = is565 ? c[1] * 63u / 255 : c[1] * 31u / 255,
                           r = c[2] * 31u / 255;
            t.PutRaw(x, y, is565 ? (r << 11) | (g << 5) | b : (r << 10) | (g << 5) | b);
        } else {
            uint8_t *p = t.Row(y) + (s.bits / 8) * static_cast<size_t>(x);
            p[0] = static_cast<uint8_t>(c[0]);
            p[1] = static_cast<uint8_t>(c[1]);
            p[2] = static_cast<uint8_t>(c[2]);
        }
    };
    auto MaskOr = [&](int sxp, int syp, int tx, int ty) {
        if (maskIn == nullptr || !MaskBit(mask, sxp, syp)) return;
        const size_t at = PixelOffset(out.mask) + RowBytes(1, newWidth) * static_cast<size_t>(ty) + tx / 8;
        out.mask[at] |= static_cast<uint8_t>(0x80 >> (tx % 8));
    };
    auto MeanOfSum = [](long sum, int count) {
        const float q = static_cast<float>(sum) / static_cast<float>(count == 0 ? 1 : count);
        return Trunc(static_cast<double>(q) + 0.5);
    };

    for (long y = 0; y < H;) {
        const RefRun ry = RunAt(y, sy, newHeight);
        for (long x = 0; x < W;) {
            const RefRun rx = RunAt(x, sx, newWidth);
            const int X = static_cast<int>(x), Y = static_cast<int>(y);
            const long nx = rx.n, ny = ry.n;
            const int tx = rx.start, ty = ry.start, tw = rx.length, th = ry.length;
            if (!average) {
                const uint32_t v = s.Raw(X, Y);
                for (int j = 0; j < th; ++j)
                    for (int i = 0; i < tw; ++i)
                        if (tx + i < newWidth && ty + j < newHeight) {
                            t.PutRaw(tx + i, ty + j, v);
                            MaskOr(X, Y, tx + i, ty + j);
                        }
            } else {
                int c00[3], c10[3], c01[3], c11[3];
                for (int c = 0; c < channels; ++c) {
                    if (sx >= 1.0f && sy >= 1.0f) {
                        c00[c] = S(X, Y, c);
                        c10[c] = X < W - 1 ? S(X + 1, Y, c) : c00[c];
                        c01[c] = Y < H - 1 ? S(X, Y + 1, c) : c00[c];
                        c11[c] = X < W - 1 && Y < H - 1 ? S(X + 1, Y + 1, c) : c00[c];
                        continue;
                    }
                    long sum = 0;
                    int count = 0;
                    for (long b = 0; b < ny; ++b)
                        for (long a = 0; a < nx; ++a)
                            if (X + a < W && Y + b < H) {
                                sum += S(static_cast<int>(X + a), static_cast<int>(Y + b), c);
                                ++count;
                            }
                    const int A = MeanOfSum(sum, count);
                    c00[c] = A;
                    if (nx >= 2) {
                        c10[c] = A;
                    } else if (X == W - 1) {
                        c10[c] = S(X, Y, c);
                    } else if (ny == 1) {
                        c10[c] = S(X + 1, Y, c);
                    } else {
                        long s2 = 0;
                        int n2 = 0;
                        for (long k = 0; k < ny; ++k)
                            if (Y + k < H) {
                                s2 += S(X + 1, static_cast<int>(Y + k), c);
                                ++n2;
                            }
                        c10[c] = MeanOfSum(s2, n2);
                    }
                    if (ny >= 2) {
                        c01[c] = A;
                    } else if (Y == H - 1) {
                        c01[c] = S(X, Y, c);
                    } else if (nx == 1) {
                        c01[c] = S(X, Y + 1, c);
                    } else {
                        long s2 = 0;
                        int n2 = 0;
                        for (long k = 0; k < nx; ++k)
                            if (X + k < W) {
                                s2 += S(static_cast<int>(X + k), Y + 1, c);
                                ++n2;
                            }
                        c01[c] = MeanOfSum(s2, n2);
                    }
                    if (nx >= 2 && ny >= 2)
                        c11[c] = A;
                    else if (nx == 1 && ny >= 2)
                        c11[c] = c10[c];
                    else if (nx >= 2 && ny == 1)
                        c11[c] = c01[c];
                    else if (X < W - 1 && Y < H - 1)
                        c11[c] = S(X + 1, Y + 1, c);
                    else if (X == W - 1 && Y < H - 1)
                        c11[c] = S(X, Y + 1, c);
                    else if (Y == H - 1 && X < W - 1)
                        c11[c] = S(X + 1, Y, c);
                    else
                        c11[c] = S(X, Y, c);
                }
                if (sx < 1.0f && sy < 1.0f) {
                    if (tx < newWidth && ty < newHeight) {
                        Put(tx, ty, c00);
                        MaskOr(X, Y, tx, ty);
                    }
                } else {
                    for (int j = 0; j < th; ++j)
                        for (int i = 0; i < tw; ++i) {
                            if (tx + i >= newWidth || ty + j >= newHeight) continue;
                            const float fy = static_cast<float>((1.0 / th) * j);
                            const float fx = static_cast<float>((1.0 / tw) * i);
                            int v[3];
                            for (int c = 0; c < channels; ++c) {
                                const double value =
                                    ((c00[c] * (1.0 - fx) + c10[c] * static_cast<double>(fx)) * (1.0 - fy)) +
                                    ((c01[c] * (1.0 - fx) + c11[c] * static_cast<double>(fx)) *
                                     static_cast<double>(fy)) +
                                    0.5;
                                int iv = Trunc(value);
                                v[c] = iv < 0 ? 0 : iv > 255 ? 255 : iv;
                            }
                            Put(tx + i, ty + j, v);
                            MaskOr(X, Y, tx + i, ty + j);
                        }
                }
            }
            x += nx;
        }
        y += ry.n;
    }
    return out;
}

}  // namespace tz3test
