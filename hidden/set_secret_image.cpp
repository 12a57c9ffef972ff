// TZ3SetSecretImage: hides a 1-bit stamp in a 24-bit image as a small shift of luma.
//
// The stamp is the caller's, or drawn from a text into a box of the image. Under each set bit the
// pixel goes to Y, Cr, Cb through the float tables, Y is shifted by Strength when the result stays
// in 0..255 (else it keeps its value: the shift is left out, not clipped), and the pixel comes back
// through the single-precision constants, in double precision, truncated and clamped. A pixel under
// a set bit is thus converted even when Y did not move, and may change by rounding alone.
//
// Placement: the stamp's top row lands on the top-down image row y0 and its left column on x0,
// with x0 and y0 as given. The box that sizes a drawn stamp is clamped into the image and ordered,
// but those clamped values size the stamp only, so a box that starts off the image gives a stamp
// that is shifted against it: that is what callers rely on.
//
// The text is fitted by shrinking the font one pixel of height at a time until its extents fit the
// box, then centred. Text along the font's own baseline (directions 0 and 1 upright or upside down,
// 2 and 3 turned by 90 or 270 degrees) is drawn as a whole string, with underline and strikeout;
// any other combination places the characters one by one, each taking the height of its cell
// along the line of advance, and drops the lines. Each character's cell is opaque, so it can erase
// ink of the character before it where the cells overlap.
#include "hidden/set_secret_image.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "frame/arith.h"
#include "frame/call.h"
#include "frame/colour_tables.h"
#include "platform/text.h"

namespace tz3 {
namespace {

// The way back from YCC, single-precision constants fixed by their bits.
constexpr float kCrToRed = std::bit_cast<float>(0x3FB374BCu);    // 1.402
constexpr float kCrToGreen = std::bit_cast<float>(0x3F36D1E1u);  // 0.71414
constexpr float kCbToGreen = std::bit_cast<float>(0x3EB0331Eu);  // 0.34414
constexpr float kCbToBlue = std::bit_cast<float>(0x3FE2D0E5u);   // 1.772

constexpr size_t kMaxTextBytes = 128;
constexpr size_t kMaxFaceBytes = 32;
constexpr int32_t kCharSetJapanese = 128;

// Bytes of a zero-terminated text, looking at no more than limit + 1 of them; a missing text has
// none.
size_t BoundedLength(const char *text, size_t limit) {
    if (text == nullptr) return 0;
    size_t n = 0;
    while (n <= limit && text[n] != '\0') ++n;
    return n;
}

bool WholeStringOf(const SecretTextStyle &s) {
    return ((s.direction == 0 || s.direction == 1) && (s.angle == 0 || s.angle == 180)) ||
           ((s.direction == 2 || s.direction == 3) && (s.angle == 90 || s.angle == 270));
}

// The characters of the text in reverse order, each keeping its own bytes in their order; bytes
// that start no character are dropped, as every walk of the text skips them.
void ReverseCharacters(char *text) {
    const size_t length = std::strlen(text);
    char reversed[sizeof SecretTextStyle::text] = {};
    size_t end = length;
    size_t at = 0;
    while (at < length) {
        const size_t n = CharacterBytes(text + at, length - at);
        if (n == 0) {
            ++at;
            continue;
        }
        end -= n;
        std::memcpy(reversed + end, text + at, n);
        at += n;
    }
    // Dropped bytes leave a gap at the front of the reversed text.
    const size_t kept = length - end;
    std::memmove(text, reversed + end, kept);
    std::memset(text + kept, 0, sizeof SecretTextStyle::text - kept);
}

// Calls step(start, bytes) for each character of the text.
template <class Step>
bool ForEachTextCharacter(const char *text, Step step) {
    const size_t length = std::strlen(text);
    size_t at = 0;
    while (at < length) {
        const size_t n = CharacterBytes(text + at, length - at);
        if (n == 0) {
            ++at;
            continue;
        }
        if (!step(text + at, n)) return false;
        at += n;
    }
    return true;
}

// Extents of the text as the fitting counts them: the whole string's, or, character by character,
// the cells' heights added along the line of advance and the widest cell across it.
void MeasureSecretText(const TextFont &font, const SecretTextStyle &s, bool wholeString, int32_t *cx, int32_t *cy) {
    if (wholeString) {
        TextExtent(font, s.text, std::strlen(s.text), cx, cy);
        return;
    }
    int64_t width = 0;
    int64_t height = 0;
    const bool across = s.direction == 0 || s.direction == 1;  // turned characters along a row
    ForEachTextCharacter(s.text, [&](const char *c, size_t n) {
        int32_t charW = 0;
        int32_t charH = 0;
        TextExtent(font, c, n, &charW, &charH);
        if (across) {
            width += charH;
            height = std::max<int64_t>(height, charW);
        } else {
            width = std::max<int64_t>(width, charW);
            height += charH;
        }
        return true;
    });
    *cx = static_cast<int32_t>(std::min<int64_t>(width, INT32_MAX));
    *cy = static_cast<int32_t>(std::min<int64_t>(height, INT32_MAX));
}

FontRequest RequestOf(const SecretTextStyle &s, bool wholeString, int32_t height) {
    FontRequest r;
    r.height = height;
    r.weight = s.bold != 0 ? 700 : 400;
    r.escapement = s.angle == 90 ? 900 : s.angle == 180 ? 1800 : s.angle == 270 ? 2700 : 0;
    r.italic = s.italic != 0 ? 1 : 0;
    r.underline = wholeString && s.underline != 0 ? 1 : 0;
    r.strikeOut = wholeString && s.strikeOut != 0 ? 1 : 0;
    r.charSet = CheckJapan() != 0 ? kCharSetJapanese : 0;
    std::memcpy(r.faceName, s.faceName, sizeof r.faceName);
    return r;
}

// The font whose extents fit the box, shrunk one pixel of height at a time; a positive height is
// lowered and any other raised, so the steps head for the smallest font. Past the smallest font
// the steps would swing between heights 0 and 1 for ever; they stop after MaxFitSteps and the fit
// fails. False (status 2) when no font can be made or none fits.
bool FitSecretFont(const TextFace &face, const SecretTextStyle &s, bool wholeString, int32_t boxWidth,
                   int32_t boxHeight, TextFont &font, int32_t *cx, int32_t *cy) {
    int32_t h = -MulDiv(s.pointSize, LogicalPixelsY(), 72);
    const int64_t limit = MaxFitSteps(h);
    for (int64_t step = 0; step < limit; ++step) {
        if (!MakeTextFont(face, RequestOf(s, wholeString, h), font)) break;
        int32_t width = 0;
        int32_t height = 0;
        MeasureSecretText(font, s, wholeString, &width, &height);
        if (height <= boxHeight && width <= boxWidth) {
            *cx = width;
            *cy = height;
            return true;
        }
        if (h <= 0) {
            ++h;
        } else {
            --h;
        }
    }
    SetErrorStatus(TZ3_DIALOG_FAILED);
    return false;
}

// Centres the fitted text in the box and draws it; 1, or 0 when a drawing failed.
int32_t PlaceSecretText(const TextSurface &surface, const TextFont &font, SecretTextStyle s, bool wholeString,
                        int32_t left, int32_t top, int32_t boxWidth, int32_t boxHeight, int32_t cx, int32_t cy) {
    if (s.direction == 1 || s.direction == 3) ReverseCharacters(s.text);
    if ((s.direction == 0 || s.direction == 1) && s.angle == 180) ReverseCharacters(s.text);
    if ((s.direction == 2 || s.direction == 3) && s.angle == 90) ReverseCharacters(s.text);
    // Wider types keep the centring exact for any box the stamp can have.
    int64_t x = 0;
    int64_t y = 0;
    if (wholeString && (s.angle == 90 || s.angle == 270)) {
        x = left + (static_cast<int64_t>(boxWidth) - cy) / 2;
        y = top + (static_cast<int64_t>(boxHeight) - cx) / 2;
    } else {
        x = left + (static_cast<int64_t>(boxWidth) - cx) / 2;
        y = top + (static_cast<int64_t>(boxHeight) - cy) / 2;
    }
    const auto at = [](int64_t v) { return static_cast<int32_t>(std::clamp<int64_t>(v, INT32_MIN, INT32_MAX)); };
    if (wholeString) {
        // A turned string grows away from its starting point, so the start moves to the corner
        // the turned text begins from.
        if (s.angle == 90) {
            y += cx;
        } else if (s.angle == 180) {
            x += cx;
            y += cy;
        } else if (s.angle == 270) {
            x += cy;
        }
        return DrawTextOnSurface(surface, font, s.text, std::strlen(s.text), at(x), at(y)) > 0 ? 1 : 0;
    }
    bool first = true;
    return ForEachTextCharacter(s.text, [&](const char *c, size_t n) {
               int32_t charW = 0;
               int32_t charH = 0;
               TextExtent(font, c, n, &charW, &charH);
               if (first) {
                   if (s.angle == 90) {
                       y += cy;
                   } else if (s.angle == 180) {
                       x += cx;
                       y += charH;
                   } else if (s.angle == 270) {
                       x += charH;
                   }
                   first = false;
               }
               if (DrawTextOnSurface(surface, font, c, n, at(x), at(y)) <= 0) return false;
               if (s.direction == 0 || s.direction == 1) {
                   x += charH;
               } else {
                   y += charH;
               }
               return true;
           })
               ? 1
               : 0;
}

}  // namespace

int64_t MaxFitSteps(int32_t startHeight) {
    const int64_t h = startHeight;
    return (h < 0 ? -h : h) + 3;
}

int32_t DrawSecretText(DibHandle stamp, int32_t left, int32_t top, int32_t right, int32_t bottom,
                       SecretTextStyle style) {
    style.textColor = 0x00FFFFFF;
    style.backColor = 0;
    style.transparentBack = 0;
    style.alignX = 1;
    style.alignY = 1;
    const size_t faceBytes = BoundedLength(style.faceName, kMaxFaceBytes);
    const size_t textBytes = BoundedLength(style.text, kMaxTextBytes);
    if (faceBytes < 1 || faceBytes > kMaxFaceBytes || style.pointSize == 0 || textBytes < 1 ||
        textBytes > kMaxTextBytes) {
        SetErrorStatus(TZ3_BAD_PARAMETER);
        return 0;
    }
    if (static_cast<int64_t>(bottom) - top == 0 || static_cast<int64_t>(right) - left == 0) {
        SetErrorStatus(TZ3_BAD_PARAMETER);
        return 0;
    }
    const LockedBlock lock(stamp);
    if (!lock) {
        SetErrorStatus(TZ3_NO_MEMORY);
        return 0;
    }
    uint8_t *mask = lock.bytes();
    TextSurface surface;
    surface.bits = DibBits(mask);
    surface.width = DibWidth(mask);
    surface.height = DibHeight(mask);
    surface.stride = DibRowBytes(mask);
    if (style.direction > 3) style.direction = 0;
    if (style.angle != 0 && style.angle != 90 && style.angle != 180 && style.angle != 270) style.angle = 0;
    if (style.alignX > 2) style.alignX = 0;
    if (style.alignY > 2) style.alignY = 0;
    if (left > right) std::swap(left, right);
    if (top > bottom) std::swap(top, bottom);
    const bool wholeString = WholeStringOf(style);
    const int32_t boxWidth = right - left;
    const int32_t boxHeight = bottom - top;

    TextFace face;
    if (!face.Open(RequestOf(style, wholeString, 0))) {
        SetErrorStatus(TZ3_DIALOG_FAILED);
        return 0;
    }
    TextFont font;
    int32_t cx = 0;
    int32_t cy = 0;
    if (!FitSecretFont(face, style, wholeString, boxWidth, boxHeight, font, &cx, &cy)) return 0;
    const int32_t placed = PlaceSecretText(surface, font, style, wholeString, left, top, boxWidth, boxHeight, cx, cy);
    SetErrorStatus(placed == 1 ? TZ3_OK : TZ3_DRAWING_FAILED);
    return placed == 1 ? 1 : 0;
}

namespace {

// The arguments of a text stamp, before they become a style.
struct TextArgs {
    const char *text;
    const char *faceName;
    int32_t pointSize, bold, italic, underline, strikeOut, direction, angle;
};

SecretTextStyle StyleOf(const TextArgs &a) {
    SecretTextStyle s;
    // The lengths were checked before; the last byte of each field stays the terminator anyway.
    if (a.faceName != nullptr) {
        std::memcpy(s.faceName, a.faceName, std::min(BoundedLength(a.faceName, kMaxFaceBytes), kMaxFaceBytes));
    }
    if (a.text != nullptr) std::memcpy(s.text, a.text, std::min(BoundedLength(a.text, kMaxTextBytes), kMaxTextBytes));
    s.pointSize = static_cast<uint16_t>(a.pointSize);
    s.bold = static_cast<uint8_t>(a.bold);
    s.italic = static_cast<uint8_t>(a.italic);
    s.underline = static_cast<uint8_t>(a.underline);
    s.strikeOut = static_cast<uint8_t>(a.strikeOut);
    s.direction = static_cast<uint8_t>(a.direction);
    s.angle = static_cast<uint16_t>(a.angle);
    return s;
}

// The luma shift under every set bit of the stamp, written into the clone.
bool MarkWorker(const uint8_t *src, uint8_t *dst, const uint8_t *stampDib, const YccTables &tables,
                int32_t strength, int32_t x0, int32_t y0, int32_t noDialog) {
    const int64_t width = DibWidth(src);
    const int64_t height = DibHeight(src);
    const auto stride = static_cast<size_t>(DibRowBytes(src));
    const uint8_t *srcBits = DibBits(src);
    uint8_t *dstBits = DibBits(dst);
    const int32_t stampWidth = DibWidth(stampDib);
    const int32_t stampHeight = DibHeight(stampDib);
    const auto stampStride = static_cast<size_t>(DibRowBytes(stampDib));
    const uint8_t *stampBits = DibBits(stampDib);
    const float *const *t = tables.t;
    for (int32_t my = 0; my < stampHeight; ++my) {
        const uint8_t *stampRow = stampBits + stampStride * static_cast<size_t>(my);
        // Stamp row my counts from the stamp's bottom; its top row lands on top-down row y0.
        const int64_t iy = (height - 1) - y0 - ((static_cast<int64_t>(stampHeight) - 1) - my);
        for (int32_t mx = 0; mx < stampWidth; ++mx) {
            if (!MaskBitSet(stampRow, mx)) continue;
            const int64_t ix = static_cast<int64_t>(x0) + mx;
            if (ix < 0 || ix >= width || iy < 0 || iy >= height) continue;
            const size_t at = stride * static_cast<size_t>(iy) + 3 * static_cast<size_t>(ix);
            const uint8_t blue = srcBits[at];
            const uint8_t green = srcBits[at + 1];
            const uint8_t red = srcBits[at + 2];
            int32_t y = static_cast<uint8_t>(TruncToInt32(static_cast<double>(t[kTableYRed][red]) +
                                                          static_cast<double>(t[kTableYGreen][green]) +
                                                          static_cast<double>(t[kTableYBlue][blue])));
            const auto cr = static_cast<float>(static_cast<double>(t[kTableCrRed][red]) +
                                               static_cast<double>(t[kTableCrGreen][green]) +
                                               static_cast<double>(t[kTableCrBlue][blue]) + 128.0);
            const auto cb = static_cast<float>(static_cast<double>(t[kTableCbRed][red]) +
                                               static_cast<double>(t[kTableCbGreen][green]) +
                                               static_cast<double>(t[kTableCbBlue][blue]) + 128.0);
            // A shift that would leave 0..255 is left out, not clipped.
            if (y <= 255 - static_cast<int64_t>(strength) && y >= -static_cast<int64_t>(strength)) {
                y = static_cast<int32_t>((y + static_cast<int64_t>(strength)) % 256);
            }
            const auto a = static_cast<float>(static_cast<double>(cb) - 128.0);
            const auto b = static_cast<float>(static_cast<double>(cr) - 128.0);
            const auto yf = static_cast<double>(static_cast<float>(y));
            dstBits[at] = TruncClamp255(yf + static_cast<double>(a) * static_cast<double>(kCbToBlue));
            dstBits[at + 1] = TruncClamp255(yf - static_cast<double>(a) * static_cast<double>(kCbToGreen) -
                                            static_cast<double>(b) * static_cast<double>(kCrToGreen));
            dstBits[at + 2] = TruncClamp255(yf + static_cast<double>(b) * static_cast<double>(kCrToRed));
        }
        if (PercentProgress(my, stampHeight - 1, 0, 100, noDialog) == 0) {
            SetErrorStatus(TZ3_CANCELLED);
            return false;
        }
    }
    return true;
}

DibHandle SetSecretImage(DibHandle image, DibHandle stamp, const TextArgs &textArgs, int32_t strength, int32_t x0,
                         int32_t y0, int32_t x1, int32_t y1, int32_t noDialog) {
    if (image == nullptr) {
        SetErrorStatus(TZ3_BAD_IMAGE);
        return nullptr;
    }
    const LockedBlock imageLock(image);
    if (!imageLock) {
        SetErrorStatus(TZ3_NO_MEMORY);
        return nullptr;
    }
    const uint8_t *src = imageLock.bytes();
    // By depth alone; a block too short for what its header claims is no image either.
    if (imageLock.size() < kHeaderBytes || DibBitCount(src) != 24) {
        SetErrorStatus(TZ3_BAD_IMAGE);
        return nullptr;
    }
    if (!CheckDibBlock(src, imageLock.size())) return nullptr;
    const int32_t width = DibWidth(src);
    const int32_t height = DibHeight(src);

    LockedBlock callerStamp;
    OwnedBlock ownStamp;
    const uint8_t *stampDib = nullptr;
    if (stamp != nullptr) {
        callerStamp = LockedBlock(stamp);
        if (!callerStamp) {
            SetErrorStatus(TZ3_NO_MEMORY);
            return nullptr;
        }
        if (callerStamp.size() < kHeaderBytes || DibBitCount(callerStamp.bytes()) != 1) {
            SetErrorStatus(TZ3_BAD_IMAGE);
            return nullptr;
        }
        if (!CheckDibBlock(callerStamp.bytes(), callerStamp.size())) return nullptr;
        stampDib = callerStamp.bytes();
    } else {
        if (BoundedLength(textArgs.text, kMaxTextBytes) > kMaxTextBytes ||
            BoundedLength(textArgs.faceName, kMaxFaceBytes) > kMaxFaceBytes) {
            SetErrorStatus(TZ3_BAD_PARAMETER);
            return nullptr;
        }
        // The clamped, ordered box sizes the stamp and nothing else.
        const int32_t maxX = static_cast<int32_t>(static_cast<int64_t>(width) - 1);
        const int32_t maxY = static_cast<int32_t>(static_cast<int64_t>(height) - 1);
        const auto clampEdge = [](int32_t v, int32_t max) { return v > max ? max : v < 0 ? 0 : v; };
        int32_t bx0 = clampEdge(x0, maxX);
        int32_t bx1 = clampEdge(x1, maxX);
        int32_t by0 = clampEdge(y0, maxY);
        int32_t by1 = clampEdge(y1, maxY);
        if (bx0 > bx1) std::swap(bx0, bx1);
        if (by0 > by1) std::swap(by0, by1);
        DibHandle made =
            MakeRegionMask(bx1 - bx0 + 1, by1 - by0 + 1, 0, nullptr, 0, 0, 0, bx1 - bx0, by1 - by0, 1);
        if (made == nullptr) return nullptr;
        BlockOwner madeOwner(made);
        if (DrawSecretText(made, 0, 0, bx1 - bx0, by1 - by0, StyleOf(textArgs)) == 0) {
            SetErrorStatus(TZ3_DRAWING_FAILED);
            return nullptr;
        }
        ownStamp = OwnedBlock(madeOwner.Release());
        if (!ownStamp) {
            SetErrorStatus(TZ3_NO_MEMORY);
            return nullptr;
        }
        stampDib = ownStamp.bytes();
    }

    DibHandle cloned = CloneDib(src, width, height, 1);
    if (cloned == nullptr) return nullptr;
    OwnedBlock clone(cloned);
    if (!clone) {
        SetErrorStatus(TZ3_NO_MEMORY);
        return nullptr;
    }
    YccTables tables;
    if (!BuildYccTables(tables)) return nullptr;
    if (!MarkWorker(src, clone.bytes(), stampDib, tables, strength, x0, y0, noDialog)) return nullptr;
    return clone.Release();
}

}  // namespace
}  // namespace tz3

extern "C" TZ3_API DibHandle TZ3SetSecretImage(DibHandle image, DibHandle stamp, const char *text,
                                               const char *faceName, int32_t pointSize, int32_t bold, int32_t italic,
                                               int32_t underline, int32_t strikeOut, int32_t direction, int32_t angle,
                                               int32_t strength, int32_t x0, int32_t y0, int32_t x1, int32_t y1,
                                               int32_t noDialog, intptr_t dialog1, intptr_t dialog2,
                                               intptr_t dialog3) {
    using namespace tz3;
    return RunExport<DibHandle>(noDialog, dialog1, dialog2, dialog3, [&] {
        const TextArgs textArgs{text, faceName, pointSize, bold, italic, underline, strikeOut, direction, angle};
        return SetSecretImage(image, stamp, textArgs, strength, x0, y0, x1, y1, noDialog);
    });
}
