#include "support/compose_reference.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "support/test_images.h"

namespace tz3test {
namespace {

int32_t Get32(const std::vector<uint8_t> &d, size_t at) {
    int32_t v;
    std::memcpy(&v, &d[at], 4);
    return v;
}

uint8_t ByteOr0(const std::vector<uint8_t> &d, size_t at) {
    return at < d.size() ? d[at] : 0;
}

size_t Stride(int bits, int width) {
    return static_cast<size_t>((bits * width + 31) / 32 * 4);
}

size_t Rows(const std::vector<uint8_t> &d) {
    const int bits = d[14];
    uint32_t n = static_cast<uint32_t>(Get32(d, 32));
    if (n == 0) n = bits == 1 ? 2 : bits == 4 ? 16 : bits == 8 ? 256 : 0;
    return 40 + 4 * static_cast<size_t>(n);
}

std::vector<uint8_t> NewImage24(int64_t width, int64_t height) {
    const size_t stride = Stride(24, static_cast<int>(width));
    std::vector<uint8_t> out(40 + stride * static_cast<size_t>(height), 0);
    const int32_t fields[6] = {40,
                               static_cast<int32_t>(width),
                               static_cast<int32_t>(height),
                               0,
                               0,
                               static_cast<int32_t>(stride * static_cast<size_t>(height))};
    std::memcpy(&out[0], &fields[0], 12);
    out[12] = 1;
    out[14] = 24;
    std::memcpy(&out[20], &fields[5], 4);
    return out;
}

void Put24(std::vector<uint8_t> &dib, int64_t x, int64_t y, Bgr c) {
    const size_t at = 40 + Stride(24, Get32(dib, 4)) * static_cast<size_t>(y) + 3 * static_cast<size_t>(x);
    dib[at] = c.b;
    dib[at + 1] = c.g;
    dib[at + 2] = c.r;
}

Bgr Blend(Bgr s, Bgr t, int opacity) {
    return Bgr{RefBlend(s.b, t.b, opacity), RefBlend(s.g, t.g, opacity), RefBlend(s.r, t.r, opacity)};
}

// The private copy of an image that is mirrored and flipped before the paste: header and table as
// they were, biSizeImage rewritten, the block cut to what the header claims, pixels moved. Table
// reads past a short table land in these moved rows, as they do in the copy the library makes.
std::vector<uint8_t> MovedCopy(const std::vector<uint8_t> &dib, bool mirror, bool flip) {
    const int bits = dib[14];
    const int width = Get32(dib, 4), height = Get32(dib, 8);
    const size_t stride = Stride(bits, width);
    const size_t head = Rows(dib);
    std::vector<uint8_t> out(dib.begin(), dib.begin() + static_cast<std::ptrdiff_t>(head + stride * height));
    const int32_t sizeImage = static_cast<int32_t>(stride * height);
    std::memcpy(&out[20], &sizeImage, 4);
    std::fill(out.begin() + static_cast<std::ptrdiff_t>(head), out.end(), 0);
    for (int y = 0; y < height; ++y) {
        const int ty = flip ? height - 1 - y : y;
        const uint8_t *from = &dib[head + stride * y];
        uint8_t *to = &out[head + stride * ty];
        for (int x = 0; x < width; ++x) {
            const int tx = mirror ? width - 1 - x : x;
            if (bits == 1) {
                const int v = (from[x / 8] >> (7 - x % 8)) & 1;
                to[tx / 8] = static_cast<uint8_t>(to[tx / 8] | (v << (7 - tx % 8)));
            } else if (bits == 4) {
                const int v = x % 2 == 0 ? from[x / 2] >> 4 : from[x / 2] & 15;
                to[tx / 2] = static_cast<uint8_t>(to[tx / 2] | (tx % 2 == 0 ? v << 4 : v));
            } else {
                const int n = bits / 8;
                for (int k = 0; k < n; ++k) to[tx * n + k] = from[x * n + k];
            }
        }
        // A flip moves the row's padding with it; a mirror leaves padding zero.
        if (!mirror) {
            for (size_t k = (static_cast<size_t>(bits) * width + 7) / 8; k < stride; ++k) to[k] = from[k];
            if (bits < 8 && (bits * width) % 8 != 0) {
                const size_t last = static_cast<size_t>(bits) * width / 8;
                const int used = (bits * width) % 8;
                to[last] = static_cast<uint8_t>(to[last] | (from[last] & (0xFF >> used)));
            }
        }
    }
    return out;
}

}  // namespace

Bgr RefPixel(const std::vector<uint8_t> &dib, int x, int y) {
    const int bits = dib[14];
    const int width = Get32(dib, 4);
    const uint8_t *row = &dib[Rows(dib) + Stride(bits, width) * static_cast<size_t>(y)];
    int index = 0;
    switch (bits) {
        case 1:
            index = (row[x / 8] >> (7 - x % 8)) & 1;
            break;
        case 4:
            index = x % 2 == 0 ? row[x / 2] >> 4 : row[x / 2] & 15;
            break;
        case 8:
            index = row[x];
            break;
        case 16: {
            const int w = row[2 * x] | (row[2 * x + 1] << 8);
            const bool is565 = Get32(dib, 16) == 3 && Get32(dib, 40) == 0xF800;
            if (is565) {
                return Bgr{static_cast<uint8_t>((w & 31) * 255 / 31),
                           static_cast<uint8_t>(((w >> 5) & 63) * 255 / 63),
                           static_cast<uint8_t>(((w >> 11) & 31) * 255 / 31)};
            }
            return Bgr{static_cast<uint8_t>((w & 31) * 255 / 31),
                       static_cast<uint8_t>(((w >> 5) & 31) * 255 / 31),
                       static_cast<uint8_t>(((w >> 10) & 31) * 255 / 31)};
        }
        case 24:
            return Bgr{row[3 * x], row[3 * x + 1], row[3 * x + 2]};
        default:
            return Bgr{row[4 * x], row[4 * x + 1], row[4 * x + 2]};
    }
    const size_t at = 40 + 4 * static_cast<size_t>(index);
    return Bgr{ByteOr0(dib, at), ByteOr0(dib, at + 1), ByteOr0(dib, at + 2)};
}

Bgr Pixel24(const std::vector<uint8_t> &dib, int x, int y) {
    const size_t at = 40 + Stride(24, Get32(dib, 4)) * static_cast<size_t>(y) + 3 * static_cast<size_t>(x);
    return Bgr{dib[at], dib[at + 1], dib[at + 2]};
}

uint8_t RefBlend(uint8_t s, uint8_t t, int opacity) {
    const int a = opacity & 255;
    if (a == 0) return t;
    if (a == 255) return s;
    if (s == t) return s;
    const float fa = static_cast<float>(a);
    const float f255 = 255.0f;
    const double v = static_cast<double>(f255 - fa) * t / f255 + static_cast<double>(s) * fa / f255;
    return static_cast<uint8_t>(static_cast<int>(v));
}

std::vector<uint8_t> ReferencePaste(const std::vector<uint8_t> &target, const std::vector<uint8_t> &source,
                                    const std::vector<uint8_t> *mask, const PasteSettings &s) {
    const int W = Get32(source, 4), H = Get32(source, 8);
    const int Wt = Get32(target, 4), Ht = Get32(target, 8);
    int angle = s.angle;
    if (angle > 35999) angle = 35999;
    if (angle < -35999) angle = -35999;
    const Bgr back{static_cast<uint8_t>(s.backBlue), static_cast<uint8_t>(s.backGreen),
                   static_cast<uint8_t>(s.backRed)};

    // Mirror and flip work on private copies of the source and its mask.
    const bool moved = s.mirror != 0 || s.flip != 0;
    const std::vector<uint8_t> movedSource = moved ? MovedCopy(source, s.mirror != 0, s.flip != 0) : source;
    std::vector<uint8_t> movedMask;
    if (moved && mask != nullptr) movedMask = MovedCopy(*mask, s.mirror != 0, s.flip != 0);
    const std::vector<uint8_t> *usedMask = moved && mask != nullptr ? &movedMask : mask;
    const auto sourcePixel = [&](int64_t col, int64_t row) {
        return RefPixel(movedSource, static_cast<int>(col), static_cast<int>(row));
    };
    const auto maskBit = [&](int64_t col, int64_t row) {
        return MaskBit(*usedMask, static_cast<int>(col), static_cast<int>(row));
    };

    int xl, xh, yl, yh;
    if (W % 2 == 1) {
        xl = -(W / 2);
        xh = W / 2;
    } else {
        xl = 1 - W / 2;
        xh = W / 2;
    }
    yl = -(H / 2);
    yh = H % 2 == 1 ? H / 2 : H / 2 - 1;

    const double theta = ((angle / 100.0) * 3.141592657) / 180.0;
    const float cosF = static_cast<float>(std::cos(theta)), sinF = static_cast<float>(std::sin(theta));
    const float cosB = static_cast<float>(std::cos(-theta)), sinB = static_cast<float>(std::sin(-theta));

    float fMinX = 0, fMaxX = 0, fMinY = 0, fMaxY = 0;
    const auto extend = [&](float X, float Y) {
        if (X < fMinX) fMinX = X;
        if (X > fMaxX) fMaxX = X;
        if (Y < fMinY) fMinY = Y;
        if (Y > fMaxY) fMaxY = Y;
    };
    if (mask == nullptr) {
        const int corners[4][2] = {{xl, yl}, {xl, yh}, {xh, yh}, {xh, yl}};
        for (const auto &c : corners) {
            const double x = c[0], y = c[1];
            extend(static_cast<float>(x * std::cos(theta) - y * std::sin(theta)),
                   static_cast<float>(x * std::sin(theta) + y * std::cos(theta)));
        }
    } else {
        for (int y = yl; y <= yh - 1; ++y) {
            for (int x = xl; x <= xh - 1; ++x) {
                if (!maskBit(x - xl, y - yl)) continue;
                const float xf = static_cast<float>(x), yf = static_cast<float>(y);
                const float X = xf * cosF - yf * sinF;
                const float Y = yf * cosF + xf * sinF;
                extend(X, Y);
            }
        }
    }
    const bool right = angle == 0 || angle == 9000 || angle == 18000 || angle == 27000 || angle == -9000 ||
                       angle == -18000 || angle == -27000;
    const auto edge = [&](float v) -> int64_t {
        if (right) return static_cast<int64_t>(v);
        return static_cast<int64_t>(v < 0 ? v - 1.0 : v + 1.0);
    };
    const int64_t minX = edge(fMinX), maxX = edge(fMaxX), minY = edge(fMinY), maxY = edge(fMaxY);

    const int64_t left = -static_cast<int64_t>(s.pasteX), rightEdge = Wt - 1 - static_cast<int64_t>(s.pasteX);
    const int64_t bottom = static_cast<int64_t>(s.pasteY) - (Ht - 1), top = s.pasteY;
    int64_t x0, x1, y0, y1, width, height;
    if (s.keepSize != 0) {
        x0 = left;
        x1 = rightEdge;
        y0 = bottom;
        y1 = top;
        width = Wt;
        height = Ht;
    } else {
        x0 = std::min(left, minX);
        x1 = std::max(rightEdge, maxX);
        y0 = std::min(bottom, minY);
        y1 = std::max(top, maxY);
        width = std::max({int64_t{0}, left, rightEdge, minX, maxX}) -
                std::min({int64_t{0}, left, rightEdge, minX, maxX}) + 1;
        height = std::max({int64_t{0}, bottom, top, minY, maxY}) -
                 std::min({int64_t{0}, bottom, top, minY, maxY}) + 1;
    }
    std::vector<uint8_t> out = NewImage24(width, height);

    const auto inTarget = [&](int64_t tx, int64_t ty) { return 0 <= tx && tx < Wt && 0 <= ty && ty < Ht; };
    const auto targetOrBack = [&](int64_t tx, int64_t ty) {
        return inTarget(tx, ty) ? RefPixel(target, static_cast<int>(tx), static_cast<int>(ty)) : back;
    };
    const auto inSource = [&](int64_t col, int64_t row) {
        return 0 <= col && col < W && 0 <= row && row < H;
    };

    for (int64_t y = y0; y <= y1; ++y) {
        for (int64_t x = x0; x <= x1; ++x) {
            const int64_t tx = x + s.pasteX, ty = y - bottom;
            Bgr S;
            const int64_t px = x - minX, py = y - minY;
            if (px < 0 || px > maxX - minX || py < 0 || py > maxY - minY) {
                S = targetOrBack(tx, ty);
            } else if (right) {
                int64_t col, row;
                if (angle == 0) {
                    col = px;
                    row = py;
                } else if (angle == 9000 || angle == -27000) {
                    col = py;
                    row = H - 1 - px;
                } else if (angle == 18000 || angle == -18000) {
                    col = W - 1 - px;
                    row = H - 1 - py;
                } else {
                    col = W - 1 - py;
                    row = px;
                }
                if (!inSource(col, row)) {
                    ADD_FAILURE() << "right-angle pick outside the source: " << col << "," << row;
                    return out;
                }
                if (mask != nullptr && !maskBit(col, row)) {
                    S = targetOrBack(tx, ty);
                } else {
                    S = sourcePixel(col, row);
                }
            } else {
                const float xf = static_cast<float>(x), yf = static_cast<float>(y);
                const float sx = xf * cosB - yf * sinB;
                const float sy = yf * cosB + xf * sinB;
                const int ix = static_cast<int>(sx), iy = static_cast<int>(sy);
                const int64_t col = ix - xl, row = iy - yl;
                if (!inSource(col, row)) {
                    S = targetOrBack(tx, ty);
                } else {
                    int dx, dy;
                    float fx, fy;
                    if (sx > 0) {
                        dx = 1;
                        fx = sx - static_cast<float>(ix);
                    } else {
                        dx = -1;
                        fx = static_cast<float>(ix) - sx;
                    }
                    if (sy > 0) {
                        dy = 1;
                        fy = sy - static_cast<float>(iy);
                    } else {
                        dy = -1;
                        fy = static_cast<float>(iy) - sy;
                    }
                    bool any = false;
                    const auto tap = [&](int64_t c, int64_t r, int64_t ttx, int64_t tty) {
                        if (inSource(c, r) && (mask == nullptr || maskBit(c, r))) {
                            any = true;
                            return sourcePixel(c, r);
                        }
                        return targetOrBack(ttx, tty);
                    };
                    const Bgr T00 = tap(col, row, tx, ty);
                    const Bgr T10 = tap(col + dx, row, tx + dx, ty);
                    const Bgr T01 = tap(col, row + dy, tx, ty + dy);
                    const Bgr T11 = tap(col + dx, row + dy, tx + dx, ty + dy);
                    if (mask != nullptr && !any) {
                        S = targetOrBack(tx, ty);
                    } else {
                        const float omfx = 1 - fx, omfy = 1 - fy;
                        const auto mix = [&](uint8_t a00, uint8_t a10, uint8_t a01, uint8_t a11) {
                            const double v =
                                (a01 * static_cast<double>(omfx) + a11 * static_cast<double>(fx)) *
                                    static_cast<double>(fy) +
                                (a00 * static_cast<double>(omfx) + a10 * static_cast<double>(fx)) *
                                    static_cast<double>(omfy);
                            int i = static_cast<int>(v);
                            return static_cast<uint8_t>(i < 0 ? 0 : i > 255 ? 255 : i);
                        };
                        S = Bgr{mix(T00.b, T10.b, T01.b, T11.b), mix(T00.g, T10.g, T01.g, T11.g),
                                mix(T00.r, T10.r, T01.r, T11.r)};
                    }
                }
            }
            const Bgr T = inTarget(tx, ty) ? RefPixel(target, static_cast<int>(tx), static_cast<int>(ty)) : S;
            Put24(out, x - x0, y - y0, Blend(S, T, s.opacity));
        }
    }
    return out;
}

std::vector<uint8_t> ReferenceLayer(const std::vector<uint8_t> &base, const std::vector<uint8_t> &over,
                                    const LayerSettings &s) {
    const int64_t Wb = Get32(base, 4), Hb = Get32(base, 8);
    const int64_t Wo = Get32(over, 4), Ho = Get32(over, 8);
    const int64_t oy0 = Hb - Ho - s.layerY;
    const int64_t ox1 = s.layerX + Wo - 1, oy1 = Hb - 1 - s.layerY;
    int64_t x0, x1, y0, y1;
    if (s.keepSize != 0) {
        x0 = 0;
        x1 = Wb - 1;
        y0 = 0;
        y1 = Hb - 1;
    } else {
        x0 = std::min({int64_t{0}, Wb - 1, int64_t{s.layerX}, ox1});
        x1 = std::max({int64_t{0}, Wb - 1, int64_t{s.layerX}, ox1});
        y0 = std::min({int64_t{0}, Hb - 1, oy0, oy1});
        y1 = std::max({int64_t{0}, Hb - 1, oy0, oy1});
    }
    std::vector<uint8_t> out = NewImage24(x1 - x0 + 1, y1 - y0 + 1);
    const Bgr key{static_cast<uint8_t>(s.keyBlue), static_cast<uint8_t>(s.keyGreen),
                  static_cast<uint8_t>(s.keyRed)};
    const Bgr back{static_cast<uint8_t>(s.backBlue), static_cast<uint8_t>(s.backGreen),
                   static_cast<uint8_t>(s.backRed)};
    const int a = s.opacity & 255;
    for (int64_t y = y0; y <= y1; ++y) {
        for (int64_t x = x0; x <= x1; ++x) {
            const bool inOver = x >= s.layerX && x <= ox1 && y >= oy0 && y <= oy1;
            const bool inBase = x >= 0 && x < Wb && y >= 0 && y < Hb;
            Bgr S;
            bool keyed = false;
            if (inOver) {
                S = RefPixel(over, static_cast<int>(x - s.layerX), static_cast<int>(y - oy0));
                keyed = S == key;
            } else if (inBase) {
                S = RefPixel(base, static_cast<int>(x), static_cast<int>(y));
            } else {
                S = back;
            }
            const Bgr T = inBase ? RefPixel(base, static_cast<int>(x), static_cast<int>(y)) : S;
            Bgr result;
            if (a == 0 || keyed) {
                result = T;
            } else {
                result = Blend(S, T, a);
            }
            Put24(out, x - x0, y - y0, result);
        }
    }
    return out;
}

}  // namespace tz3test
