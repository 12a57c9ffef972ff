#include "support/filter_kernel_reference.h"

#include <bit>

namespace tz3test {

namespace {

int Clamp(int v, int lo, int hi) { return v < lo ? lo : v > hi ? hi : v; }

float F(uint32_t bits) { return std::bit_cast<float>(bits); }

}  // namespace

std::vector<uint8_t> ResultTemplate(const std::vector<uint8_t> &src) {
    std::vector<uint8_t> out = src;
    SetField32(out, 20, RowBytes(src[14], ImageWidth(src)) * static_cast<uint32_t>(ImageHeight(src)));
    return out;
}

int RefLuma(int r, int g, int b) {
    const float yr = static_cast<float>(r) * F(0x3E991687);
    const float yg = static_cast<float>(g) * F(0x3F1645A2);
    const float yb = static_cast<float>(b) * F(0x3DE978D5);
    return static_cast<int>(static_cast<double>(yr) + static_cast<double>(yg) + static_cast<double>(yb));
}

std::vector<uint8_t> RefCustomFilter(const std::vector<uint8_t> &src, const Selection &selected, const int32_t *kernel,
                                     int divisor, int bias, const bool on[3]) {
    std::vector<uint8_t> out = ResultTemplate(src);
    const int w = ImageWidth(src), h = ImageHeight(src);
    const int channels = ChannelCount(src);
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            if (!selected(x, y)) continue;
            uint32_t acc[3] = {0, 0, 0};  // signed 32-bit sums that wrap
            for (int r = 0; r < 9; ++r) {
                for (int c = 0; c < 9; ++c) {
                    const int32_t k = kernel[r * 9 + c];
                    if (k == 0) continue;
                    const int sx = Clamp(x + c - 4, 0, w - 1);
                    const int sy = Clamp(y + 4 - r, 0, h - 1);
                    for (int ch = 0; ch < channels; ++ch) {
                        acc[ch] += static_cast<uint32_t>(k) * static_cast<uint32_t>(ChannelValue(src, sx, sy, ch));
                    }
                }
            }
            int v[3];
            for (int ch = 0; ch < channels; ++ch) {
                if (channels == 1 || on[ch]) {
                    int value = static_cast<int32_t>(acc[ch]) / divisor;
                    value += bias;
                    v[ch] = Clamp(value, 0, 255);
                } else {
                    v[ch] = ChannelValue(src, x, y, ch);
                }
            }
            StoreChannels(out, x, y, v);
        }
    }
    return out;
}

std::vector<uint8_t> RefSharp(const std::vector<uint8_t> &src, const Selection &selected, int strength) {
    std::vector<uint8_t> out = ResultTemplate(src);
    const int w = ImageWidth(src), h = ImageHeight(src);
    const float k = static_cast<float>(static_cast<double>(static_cast<float>(strength)) * 3.0 / 100.0);
    const auto luma = [&](int x, int y) {
        if (IsGray(src)) return ChannelValue(src, x, y, 0);
        return RefLuma(ChannelValue(src, x, y, 2), ChannelValue(src, x, y, 1), ChannelValue(src, x, y, 0));
    };
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            if (!selected(x, y)) continue;
            int n = 0, s = 0;
            for (int sy = y - 1; sy <= y + 1; ++sy) {
                for (int sx = x - 1; sx <= x + 1; ++sx) {
                    if (sx < 0 || sx >= w || sy < 0 || sy >= h) continue;
                    ++n;
                    s += luma(sx, sy);
                }
            }
            const int lc = luma(x, y);
            const int d = lc * n - s;
            const float dk = static_cast<float>(d) * k;
            const float yp = dk + static_cast<float>(lc);
            if (IsGray(src)) {
                const int v[1] = {Clamp(static_cast<int>(yp), 0, 255)};
                StoreChannels(out, x, y, v);
                continue;
            }
            const int R = ChannelValue(src, x, y, 2), G = ChannelValue(src, x, y, 1), B = ChannelValue(src, x, y, 0);
            const float cr = static_cast<float>(static_cast<double>(static_cast<float>(R) * F(0x3F000000)) +
                                                static_cast<double>(static_cast<float>(G) * F(0xBED65E89)) +
                                                static_cast<double>(static_cast<float>(B) * F(0xBDA685DB)));
            const float cb = static_cast<float>(static_cast<double>(static_cast<float>(R) * F(0xBE2CCA2E)) +
                                                static_cast<double>(static_cast<float>(G) * F(0xBEA99AE9)) +
                                                static_cast<double>(static_cast<float>(B) * F(0x3F000000)));
            const double Y = yp;
            const int blue = static_cast<int>(Y + 1.772f * static_cast<double>(cb));
            const int green =
                static_cast<int>(Y - static_cast<double>(0.34414f) * cb - static_cast<double>(0.71414f) * cr);
            const int red = static_cast<int>(Y + static_cast<double>(1.402f) * cr);
            const int v[3] = {Clamp(blue, 0, 255), Clamp(green, 0, 255), Clamp(red, 0, 255)};
            StoreChannels(out, x, y, v);
        }
    }
    return out;
}

std::vector<uint8_t> RefAntiAlias(const std::vector<uint8_t> &src, const Selection &selected) {
    std::vector<uint8_t> out = ResultTemplate(src);
    const int w = ImageWidth(src), h = ImageHeight(src);
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            if (!selected(x, y)) continue;
            int v[3];
            for (int ch = 0; ch < ChannelCount(src); ++ch) {
                int s = ChannelValue(src, x, y, ch);
                int n = 1;
                if (x < w - 1) {
                    s += ChannelValue(src, x + 1, y, ch);
                    ++n;
                }
                if (x > 0) {
                    s += ChannelValue(src, x - 1, y, ch);
                    ++n;
                }
                v[ch] = s / n;
            }
            StoreChannels(out, x, y, v);
        }
    }
    return out;
}

std::vector<uint8_t> RefEmboss(const std::vector<uint8_t> &src, const Selection &selected, int direction, int depth,
                               int bias) {
    static const int kKernels[8][9] = {
        {-2, 0, 2, -2, 0, 2, -2, 0, 2},   {-2, -1, 0, -1, 0, 1, 0, 1, 2}, {-2, -2, -2, 0, 0, 0, 2, 2, 2},
        {0, -1, -2, 1, 0, -1, 2, 1, 0},   {2, 0, -2, 2, 0, -2, 2, 0, -2}, {2, 1, 0, 1, 0, -1, 0, -1, -2},
        {2, 2, 2, 0, 0, 0, -2, -2, -2},   {0, 1, 2, -1, 0, 1, -2, -1, 0},
    };
    std::vector<uint8_t> out = ResultTemplate(src);
    const int w = ImageWidth(src), h = ImageHeight(src);
    const int divisor = 6 - depth;
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            if (!selected(x, y)) continue;
            int v[3];
            for (int ch = 0; ch < ChannelCount(src); ++ch) {
                int acc = 0;
                for (int r = 0; r < 3; ++r) {
                    for (int c = 0; c < 3; ++c) {
                        const int k = kKernels[direction][r * 3 + c];
                        if (k == 0) continue;
                        acc += k * ChannelValue(src, Clamp(x + c - 1, 0, w - 1), Clamp(y + 1 - r, 0, h - 1), ch);
                    }
                }
                v[ch] = Clamp(acc / divisor + bias, 0, 255);
            }
            StoreChannels(out, x, y, v);
        }
    }
    return out;
}

}  // namespace tz3test
