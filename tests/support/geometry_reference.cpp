#include "support/geometry_reference.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "support/tone_reference.h"

namespace tz3test {
namespace {

int Depth(const std::vector<uint8_t> &d) { return WordAt(d, 14); }

size_t RowStart(const std::vector<uint8_t> &d, int y) {
    return PixelOffset(d) + RowBytes(Depth(d), ImageWidth(d)) * static_cast<size_t>(y);
}

// Writes a stored value over the pixel, other pixels of the byte kept.
void PutRaw(std::vector<uint8_t> &d, int x, int y, uint32_t v) {
    const size_t at = RowStart(d, y);
    switch (Depth(d)) {
        case 1: {
            const auto bit = static_cast<uint8_t>(0x80 >> (x % 8));
            d[at + x / 8] = static_cast<uint8_t>((v & 1) ? (d[at + x / 8] | bit) : (d[at + x / 8] & ~bit));
            break;
        }
        case 4: {
            uint8_t &b = d[at + x / 2];
            b = static_cast<uint8_t>(x % 2 == 0 ? ((b & 0x0F) | ((v & 15) << 4)) : ((b & 0xF0) | (v & 15)));
            break;
        }
        case 8: d[at + x] = static_cast<uint8_t>(v); break;
        case 16:
            d[at + 2 * x] = static_cast<uint8_t>(v);
            d[at + 2 * x + 1] = static_cast<uint8_t>(v >> 8);
            break;
        case 24:
            for (int i = 0; i < 3; ++i) d[at + 3 * x + i] = static_cast<uint8_t>(v >> (8 * i));
            break;
        default:
            for (int i = 0; i < 4; ++i) d[at + 4 * x + i] = static_cast<uint8_t>(v >> (8 * i));
            break;
    }
}

std::vector<uint8_t> Blank(const std::vector<uint8_t> &like, int width, int height) {
    std::vector<uint8_t> out(like.begin(), like.begin() + static_cast<long>(PixelOffset(like)));
    out.resize(PixelOffset(like) + RowBytes(Depth(like), width) * static_cast<size_t>(height), 0);
    SetField32(out, 4, static_cast<uint32_t>(width));
    SetField32(out, 8, static_cast<uint32_t>(height));
    SetField32(out, 20, RowBytes(Depth(like), width) * static_cast<uint32_t>(height));
    return out;
}

int NearestIndex(const std::vector<uint8_t> &d, int r, int g, int b) {
    uint32_t n = Field32(d, 32);
    if (n == 0) n = Depth(d) == 1 ? 2 : Depth(d) == 4 ? 16 : Depth(d) == 8 ? 256 : 0;
    int best = 200000, index = 0;
    for (uint32_t i = 0; i < n; ++i) {
        const int dist = (d[42 + 4 * i] - r) * (d[42 + 4 * i] - r) + (d[41 + 4 * i] - g) * (d[41 + 4 * i] - g) +
                         (d[40 + 4 * i] - b) * (d[40 + 4 * i] - b);
        if (dist < best) {
            best = dist;
            index = static_cast<int>(i);
        }
    }
    return index;
}

bool GrayPalette(const std::vector<uint8_t> &d) {
    if (Depth(d) != 8 || (Field32(d, 32) != 0 && Field32(d, 32) != 256)) return false;
    bool seen[256] = {};
    for (int i = 0; i < 256; ++i) {
        const uint8_t *e = &d[40 + 4 * i];
        if (e[0] != e[1] || e[1] != e[2] || seen[e[0]]) return false;
        seen[e[0]] = true;
    }
    return true;
}

// Channels of a pixel of a direct-colour image.
Colour ChannelsAt(const std::vector<uint8_t> &d, int x, int y) {
    const uint32_t v = RawPixel(d, x, y);
    if (Depth(d) == 16) return Expand16(static_cast<uint16_t>(v), Is565(d));
    return Colour{static_cast<int>((v >> 16) & 255), static_cast<int>((v >> 8) & 255), static_cast<int>(v & 255)};
}

// Stores channels: 16 bits packed, 24 and 32 bits three bytes (a 32-bit fourth byte untouched).
void PutChannels(std::vector<uint8_t> &d, int x, int y, Colour c) {
    if (Depth(d) == 16) {
        PutRaw(d, x, y, Pack16(c, Is565(d)));
        return;
    }
    const size_t at = RowStart(d, y) + static_cast<size_t>(x) * (Depth(d) / 8);
    d[at] = static_cast<uint8_t>(c.b);
    d[at + 1] = static_cast<uint8_t>(c.g);
    d[at + 2] = static_cast<uint8_t>(c.r);
}

int TruncClamp(double v) {
    const double t = std::trunc(v);
    return t < 0 ? 0 : t > 255 ? 255 : static_cast<int>(t);
}

int Blend(int c00, int c10, int c01, int c11, float dx, float dy) {
    const double x = dx, y = dy;
    return TruncClamp((c11 * x + c01 * (1 - x)) * y + (c00 * (1 - x) + c10 * x) * (1 - y));
}

bool IsRight(int a) {
    return a == 0 || a == 9000 || a == 18000 || a == 27000 || a == -9000 || a == -18000 || a == -27000;
}

}  // namespace

uint32_t RawPixel(const std::vector<uint8_t> &d, int x, int y) {
    const size_t at = RowStart(d, y);
    switch (Depth(d)) {
        case 1: return (d[at + x / 8] >> (7 - x % 8)) & 1;
        case 4: return x % 2 == 0 ? d[at + x / 2] >> 4 : d[at + x / 2] & 15;
        case 8: return d[at + x];
        case 16: return static_cast<uint32_t>(d[at + 2 * x] | (d[at + 2 * x + 1] << 8));
        case 24: return static_cast<uint32_t>(d[at + 3 * x] | (d[at + 3 * x + 1] << 8) | (d[at + 3 * x + 2] << 16));
        default:
            return static_cast<uint32_t>(d[at + 4 * x] | (d[at + 4 * x + 1] << 8) | (d[at + 4 * x + 2] << 16)) |
                   (static_cast<uint32_t>(d[at + 4 * x + 3]) << 24);
    }
}

ImagePair ReferenceRotation(const std::vector<uint8_t> &src, const std::vector<uint8_t> *mask,
                            const RotationArgs &args) {
    const int angle = std::clamp(args.angle, -35999, 35999);
    const int W = ImageWidth(src), H = ImageHeight(src);
    std::vector<uint8_t> img = src;
    std::vector<uint8_t> msk = mask != nullptr ? *mask : std::vector<uint8_t>();
    // Mirrors on copies: columns one by one into zeroed rows, rows whole with their padding.
    const auto mirrorColumns = [&](std::vector<uint8_t> &d) {
        std::vector<uint8_t> out = Blank(d, W, H);
        for (int y = 0; y < H; ++y)
            for (int x = 0; x < W; ++x) PutRaw(out, W - 1 - x, y, RawPixel(d, x, y));
        d = out;
    };
    const auto mirrorRows = [&](std::vector<uint8_t> &d) {
        std::vector<uint8_t> out = d;
        const size_t stride = RowBytes(Depth(d), W);
        for (int y = 0; y < H; ++y)
            std::copy_n(d.begin() + static_cast<long>(RowStart(d, y)), stride,
                        out.begin() + static_cast<long>(RowStart(out, H - 1 - y)));
        d = out;
    };
    if (args.flipHorizontal) {
        mirrorColumns(img);
        if (mask != nullptr) mirrorColumns(msk);
    }
    if (args.flipVertical) {
        mirrorRows(img);
        if (mask != nullptr) mirrorRows(msk);
    }

    const int xMin = -(W / 2), xMax = W % 2 != 0 ? W / 2 : W / 2 - 1;
    const int yMin = -(H / 2), yMax = H % 2 != 0 ? H / 2 : H / 2 - 1;
    const int bits = Depth(img);
    const int r = args.red & 255, g = args.green & 255, b = args.blue & 255;
    const int bgIndex = bits <= 8 ? NearestIndex(img, r, g, b) : 0;
    const bool gray = GrayPalette(img);
    const bool blends = args.interpolate && (bits >= 16 || (bits == 8 && gray));

    const auto paintBackground = [&](std::vector<uint8_t> &out, int x, int y) {
        if (bits <= 8) {
            PutRaw(out, x, y, static_cast<uint32_t>(bgIndex));
        } else {
            PutChannels(out, x, y, Colour{r, g, b});
        }
    };
    const auto copyPixel = [&](std::vector<uint8_t> &out, int x, int y, int col, int row) {
        if (bits <= 8) {
            PutRaw(out, x, y, RawPixel(img, col, row));
        } else {
            PutChannels(out, x, y, ChannelsAt(img, col, row));
        }
    };

    ImagePair result;
    if (IsRight(angle)) {
        int nw = W, nh = H, offX = 0, offY = 0;
        const bool quarter = angle == 9000 || angle == -9000 || angle == 27000 || angle == -27000;
        if (args.keepSize) {
            offY = (H - W) / 2;
            offX = (H - W) - offY;
        } else if (quarter) {
            nw = H;
            nh = W;
        }
        result.image = Blank(img, nw, nh);
        if (mask != nullptr) result.mask = Blank(msk, nw, nh);
        for (int y = 0; y < nh; ++y) {
            for (int x = 0; x < nw; ++x) {
                int col, row;
                if (angle == 0) {
                    col = x;
                    row = y;
                } else if (angle == 9000 || angle == -27000) {
                    col = y - offX;
                    row = H - 1 - x - offY;
                } else if (angle == 18000 || angle == -18000) {
                    col = W - 1 - x;
                    row = H - 1 - y;
                } else {
                    col = offX + W - 1 - y;
                    row = offY + x;
                }
                if (col < 0 || col > W - 1 || row < 0 || row > H - 1) {
                    paintBackground(result.image, x, y);
                    continue;
                }
                copyPixel(result.image, x, y, col, row);
                if (mask != nullptr && RawPixel(msk, col, row) == 1) PutRaw(result.mask, x, y, 1);
            }
        }
        return result;
    }

    const double a = ((angle / 100.0) * 3.141592657) / 180.0;
    const float c = static_cast<float>(std::cos(a)), s = static_cast<float>(std::sin(a));
    const float ci = static_cast<float>(std::cos(-a)), si = static_cast<float>(std::sin(-a));
    int L, R, T, B;
    if (args.keepSize) {
        L = xMin;
        R = xMax;
        T = yMin;
        B = yMax;
    } else {
        const int cx[4] = {xMin, xMin, xMax, xMax};
        const int cy[4] = {yMin, yMax, yMax, yMin};
        float minX = 0, maxX = 0, minY = 0, maxY = 0;
        for (int i = 0; i < 4; ++i) {
            const float X = static_cast<float>(static_cast<float>(cx[i] * static_cast<double>(c)) -
                                               static_cast<double>(static_cast<float>(cy[i] * static_cast<double>(s))));
            const float Y = static_cast<float>(static_cast<float>(cx[i] * static_cast<double>(s)) +
                                               static_cast<double>(static_cast<float>(cy[i] * static_cast<double>(c))));
            minX = std::min(minX, X);
            maxX = std::max(maxX, X);
            minY = std::min(minY, Y);
            maxY = std::max(maxY, Y);
        }
        const auto edge = [](float v) { return static_cast<int>(v < 0 ? v - 1.0 : v + 1.0); };
        L = edge(minX);
        R = edge(maxX);
        T = edge(minY);
        B = edge(maxY);
    }
    const int nw = R - L + 1, nh = B - T + 1;
    result.image = Blank(img, nw, nh);
    if (mask != nullptr) result.mask = Blank(msk, nw, nh);
    for (int y = T; y <= B; ++y) {
        const float ys = static_cast<float>(y * static_cast<double>(si));
        const float yc = static_cast<float>(y * static_cast<double>(ci));
        for (int x = L; x <= R; ++x) {
            const float sx = static_cast<float>(x * static_cast<double>(ci) - ys);
            const float sy = static_cast<float>(x * static_cast<double>(si) + yc);
            const int F = static_cast<int>(std::trunc(sx)), G = static_cast<int>(std::trunc(sy));
            if (F < xMin || F > xMax || G < yMin || G > yMax) {
                paintBackground(result.image, x - L, y - T);
                continue;
            }
            const int col = F - xMin, row = G - yMin;
            if (mask != nullptr && RawPixel(msk, col, row) == 1) PutRaw(result.mask, x - L, y - T, 1);
            if (!blends) {
                copyPixel(result.image, x - L, y - T, col, row);
                continue;
            }
            const int ncol = sx > 0 ? col + 1 : col - 1;
            const bool hasCol = sx > 0 ? col < W - 1 : col > 0;
            const float dx = sx > 0 ? static_cast<float>(static_cast<double>(sx) - F) : static_cast<float>(F - static_cast<double>(sx));
            const int nrow = sy > 0 ? row + 1 : row - 1;
            const bool hasRow = sy > 0 ? row < H - 1 : row > 0;
            const float dy = sy > 0 ? static_cast<float>(static_cast<double>(sy) - G) : static_cast<float>(G - static_cast<double>(sy));
            if (bits == 8) {
                // Gray levels: the blue of each entry, and back to the entry holding the level.
                const auto level = [&](int cc, int rr) { return static_cast<int>(img[40 + 4 * RawPixel(img, cc, rr)]); };
                const int bgLevel = img[40 + 4 * bgIndex];
                const int v = Blend(level(col, row), hasCol ? level(ncol, row) : bgLevel,
                                    hasRow ? level(col, nrow) : bgLevel, hasCol && hasRow ? level(ncol, nrow) : bgLevel,
                                    dx, dy);
                int index = 0;
                for (int i = 0; i < 256; ++i)
                    if (img[40 + 4 * i] == v) index = i;
                PutRaw(result.image, x - L, y - T, static_cast<uint32_t>(index));
            } else {
                const Colour bg{r, g, b};
                const Colour c00 = ChannelsAt(img, col, row);
                const Colour c10 = hasCol ? ChannelsAt(img, ncol, row) : bg;
                const Colour c01 = hasRow ? ChannelsAt(img, col, nrow) : bg;
                const Colour c11 = hasCol && hasRow ? ChannelsAt(img, ncol, nrow) : bg;
                PutChannels(result.image, x - L, y - T,
                            Colour{Blend(c00.r, c10.r, c01.r, c11.r, dx, dy), Blend(c00.g, c10.g, c01.g, c11.g, dx, dy),
                                   Blend(c00.b, c10.b, c01.b, c11.b, dx, dy)});
            }
        }
    }
    return result;
}

std::vector<uint8_t> ReferenceAffine(const std::vector<uint8_t> &src, const int32_t (&points)[8]) {
    const int W = ImageWidth(src), H = ImageHeight(src);
    struct P {
        int x, y;
    } p[4];
    for (int i = 0; i < 4; ++i) p[i] = P{std::clamp(points[2 * i], 0, W - 1), std::clamp(points[2 * i + 1], 0, H - 1)};
    const auto sift = [&](int root, int last) {
        int i = root, c = 2 * root;
        if (c > last) return;
        while (c <= last) {
            if (c < last && p[c + 1].x > p[c].x) c++;
            if (p[i].x >= p[c].x) return;
            std::swap(p[i], p[c]);
            i = c;
            c = 2 * c;
        }
    };
    sift(1, 3);
    sift(0, 3);
    for (int n = 3; n >= 1; --n) {
        std::swap(p[0], p[n]);
        sift(0, n - 1);
    }
    if (p[1].y > p[0].y) std::swap(p[0], p[1]);
    if (p[2].y > p[3].y) std::swap(p[2], p[3]);
    const P A = p[0], B = p[1], C = p[2], D = p[3];
    const int nw = std::min(C.x, D.x) - std::max(A.x, B.x);
    const int nh = std::min(A.y, D.y) - std::max(B.y, C.y);
    if (nw < 1 || nh < 1) return {};
    std::vector<uint8_t> out = Blank(src, nw, nh);
    const int bits = Depth(src);

    if (std::abs(A.x - B.x) <= 2 && std::abs(C.x - D.x) <= 2 && std::abs(B.y - C.y) <= 2 && std::abs(A.y - D.y) <= 2) {
        const int width2 = D.x - A.x, height2 = A.y - B.y;
        const size_t stride2 = RowBytes(bits, width2);
        const size_t outStride = RowBytes(bits, nw);
        int n = 1;
        for (int y = B.y; y < A.y; ++y, ++n) {
            const int row = H - y;
            const int target = height2 - n;
            if (row >= H || target >= nh) continue;  // row H is past the pixels; target rows past the image
            const size_t from = RowStart(src, row) + static_cast<size_t>(A.x) * bits / 8;
            for (size_t i = 0; i < stride2 && i < outStride; ++i)
                out[RowStart(out, target) + i] = from + i < src.size() ? src[from + i] : 0;
        }
        return out;
    }

    const double det = static_cast<double>((B.y - A.y) * (D.x - A.x) - (B.x - A.x) * (D.y - A.y));
    if (std::fabs(det) < 1) return {};
    const double p_ = ((C.x - A.x) * (B.y - A.y) - (C.y - A.y) * (B.x - A.x)) / det;
    const double q_ = ((C.y - A.y) * (D.x - A.x) - (C.x - A.x) * (D.y - A.y)) / det;
    for (int y = std::min(B.y, C.y); y < std::max(A.y, D.y); ++y) {
        for (int x = std::min(A.x, B.x); x < std::max(C.x, D.x); ++x) {
            const int row = H - y;
            uint32_t value = 0;
            if (x >= 0 && x < W && row >= 0 && row < H) value = RawPixel(src, x, row);
            const double u = ((B.y - A.y) * (x - A.x) - (B.x - A.x) * (y - A.y)) / det;
            const double v = ((D.x - A.x) * (y - A.y) - (D.y - A.y) * (x - A.x)) / det;
            const double e = (q_ - 1) * u;
            const double f = (p_ - 1) * v - e;
            const double disc = (f + 1) * (f + 1) + 4.0 * e;
            if (disc < 0) continue;
            const double r = std::sqrt(disc);
            const double g = 1 - f + r;
            if (g < 0.0001) continue;
            const double h = r + f + 1;
            if (h < 0.0001) continue;
            const double t = (v + v) / g, s = (u + u) / h;
            const double colD = std::trunc(nw * s), kD = std::trunc(nh - nh * t);
            if (colD < 0 || colD > nw - 1 || kD < 0 || kD > nh - 1) continue;
            const int col = static_cast<int>(colD), k = static_cast<int>(kD);
            const int rowOut = nh - k - 1;
            const auto put = [&](int cx, int cy) {
                if (bits == 16) {
                    PutRaw(out, cx, cy, Pack16(Expand16(static_cast<uint16_t>(value), Is565(src)), Is565(src)));
                } else if (bits == 32) {
                    PutRaw(out, cx, cy, value & 0xFFFFFF);  // the fourth byte stays 0
                } else {
                    PutRaw(out, cx, cy, value);
                }
            };
            put(col, rowOut);
            if (col + 1 < nw) put(col + 1, rowOut);
            if (rowOut + 1 < nh) put(col, rowOut + 1);
        }
    }
    return out;
}

}  // namespace tz3test
