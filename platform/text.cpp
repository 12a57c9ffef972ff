// The text rasteriser over FreeType and fontconfig.
//
// Sizes are kept in whole pixels so that measuring and drawing agree exactly: a character's
// advance is its advance in font units scaled to the pixel size and rounded, the ascent and the
// descent likewise, and characters are drawn from unhinted outlines, one-bit, at pen positions
// that are sums of those rounded advances. Measuring needs no outline at all (the advance table
// and the character map suffice), so a font can be remade at every size of a fitting loop cheaply.
//
// Turning by the escapement maps each pixel of the unturned string exactly: for a pixel (u, v) of
// the unturned cell drawn from (x, y), with y downward,
//   0    -> (x + u,     y + v)
//   900  -> (x + v,     y - u - 1)   baseline runs upward, the top of the text faces left
//   1800 -> (x - u - 1, y - v - 1)
//   2700 -> (x - v - 1, y + u)       baseline runs downward, the top faces right
#include "platform/text.h"

#include <fontconfig/fontconfig.h>
#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_ADVANCES_H
#include FT_OUTLINE_H
#include FT_TRUETYPE_TABLES_H

#include <cstring>

namespace tz3 {
namespace {

constexpr const char *kFallbackFamily = "DejaVu Sans";
constexpr const char *kFallbackFile = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
// The size of a font asked for with height 0: 12 points at 96 dots per inch.
constexpr int32_t kDefaultPpem = 16;

// Font units scaled to pixels, rounded half away from zero.
int32_t UnitsToPixels(int64_t units, int32_t ppem, int32_t unitsPerEm) {
    const int64_t scaled = units * ppem;
    const int64_t half = unitsPerEm / 2;
    return static_cast<int32_t>(scaled >= 0 ? (scaled + half) / unitsPerEm : -((-scaled + half) / unitsPerEm));
}

uint32_t DecodeCharacter(const unsigned char *p, size_t n) {
    if (n == 1) return p[0];
    uint32_t cp = p[0] & (0xFFu >> (n + 1));
    for (size_t i = 1; i < n; ++i) cp = (cp << 6) | (p[i] & 0x3Fu);
    return cp;
}

// Calls step(codePoint) for each character of the text, skipping bytes that start none.
template <class Step>
void ForEachCharacter(const char *text, size_t bytes, Step step) {
    size_t at = 0;
    while (at < bytes) {
        const size_t n = CharacterBytes(text + at, bytes - at);
        if (n == 0) {
            ++at;
            continue;
        }
        step(DecodeCharacter(reinterpret_cast<const unsigned char *>(text + at), n));
        at += n;
    }
}

// Opens the face file fontconfig matches to the pattern; the face must scale.
FT_Face OpenMatchedFace(FT_Library library, const char *family, int weight, int slant, bool japanese) {
    FcPattern *pattern = FcPatternCreate();
    if (pattern == nullptr) return nullptr;
    FcPatternAddString(pattern, FC_FAMILY, reinterpret_cast<const FcChar8 *>(family));
    FcPatternAddInteger(pattern, FC_WEIGHT, weight);
    FcPatternAddInteger(pattern, FC_SLANT, slant);
    FcPatternAddBool(pattern, FC_SCALABLE, FcTrue);
    if (japanese) FcPatternAddString(pattern, FC_LANG, reinterpret_cast<const FcChar8 *>("ja"));
    FcConfigSubstitute(nullptr, pattern, FcMatchPattern);
    FcDefaultSubstitute(pattern);
    FcResult result = FcResultNoMatch;
    FcPattern *match = FcFontMatch(nullptr, pattern, &result);
    FcPatternDestroy(pattern);
    if (match == nullptr) return nullptr;
    FcChar8 *file = nullptr;
    int index = 0;
    FT_Face face = nullptr;
    if (FcPatternGetString(match, FC_FILE, 0, &file) == FcResultMatch) {
        FcPatternGetInteger(match, FC_INDEX, 0, &index);
        if (FT_New_Face(library, reinterpret_cast<const char *>(file), index, &face) != 0) face = nullptr;
    }
    FcPatternDestroy(match);
    if (face != nullptr && !FT_IS_SCALABLE(face)) {
        FT_Done_Face(face);
        face = nullptr;
    }
    return face;
}

// Rows of the line below (underline) or through (strikeout) the text, as the cell row of its top
// edge and its thickness, both in pixels.
struct TextLine {
    int32_t top;
    int32_t thickness;
};

TextLine UnderlineOf(FT_Face face, const TextFont &font) {
    const int32_t upem = face->units_per_EM;
    int32_t thickness = UnitsToPixels(face->underline_thickness, font.ppem, upem);
    if (thickness < 1) thickness = 1;
    // underline_position is the line's centre, below the baseline when negative.
    const int32_t centre = font.ascent - UnitsToPixels(face->underline_position, font.ppem, upem);
    return TextLine{centre - thickness / 2, thickness};
}

TextLine StrikeOutOf(FT_Face face, const TextFont &font) {
    const int32_t upem = face->units_per_EM;
    const auto *os2 = static_cast<const TT_OS2 *>(FT_Get_Sfnt_Table(face, FT_SFNT_OS2));
    int32_t thickness = 0;
    int32_t above = 0;
    if (os2 != nullptr && os2->version != 0xFFFF && os2->yStrikeoutSize > 0) {
        thickness = UnitsToPixels(os2->yStrikeoutSize, font.ppem, upem);
        above = UnitsToPixels(os2->yStrikeoutPosition, font.ppem, upem);
    } else {
        thickness = UnitsToPixels(face->underline_thickness, font.ppem, upem);
        above = font.ascent * 3 / 10;  // about the middle of the lower-case letters
    }
    if (thickness < 1) thickness = 1;
    // yStrikeoutPosition is the line's top edge above the baseline.
    return TextLine{font.ascent - above, thickness};
}

class Drawing {
public:
    Drawing(const TextSurface &surface, int32_t escapement, int32_t x, int32_t y)
        : s_(surface), escapement_(escapement), x_(x), y_(y) {}
    // Sets or clears the pixel at (u, v) of the unturned string.
    void Put(int64_t u, int64_t v, bool ink) const {
        int64_t px = 0;
        int64_t py = 0;
        switch (escapement_) {
            case 900: px = x_ + v; py = y_ - u - 1; break;
            case 1800: px = x_ - u - 1; py = y_ - v - 1; break;
            case 2700: px = x_ - v - 1; py = y_ + u; break;
            default: px = x_ + u; py = y_ + v; break;
        }
        if (px < 0 || py < 0 || px >= s_.width || py >= s_.height) return;
        uint8_t *byte = s_.bits + static_cast<size_t>(s_.height - 1 - py) * static_cast<size_t>(s_.stride) +
                        static_cast<size_t>(px >> 3);
        const auto bit = static_cast<uint8_t>(0x80u >> (px & 7));
        if (ink) {
            *byte = static_cast<uint8_t>(*byte | bit);
        } else {
            *byte = static_cast<uint8_t>(*byte & ~bit);
        }
    }

private:
    const TextSurface &s_;
    int32_t escapement_;
    int64_t x_;
    int64_t y_;
};

}  // namespace

int32_t LogicalPixelsY() { return kLogPixelsY; }

int32_t MulDiv(int32_t a, int32_t b, int32_t c) {
    if (c == 0) return -1;
    const int64_t product = static_cast<int64_t>(a) * b;
    const bool negative = (product < 0) != (c < 0);
    const uint64_t magnitude = static_cast<uint64_t>(product < 0 ? -product : product);
    const uint64_t divisor = static_cast<uint64_t>(c < 0 ? -static_cast<int64_t>(c) : c);
    const uint64_t rounded = (magnitude + divisor / 2) / divisor;
    if (rounded > static_cast<uint64_t>(INT32_MAX)) return -1;
    return negative ? -static_cast<int32_t>(rounded) : static_cast<int32_t>(rounded);
}

size_t CharacterBytes(const char *text, size_t remaining) {
    if (remaining == 0) return 0;
    const auto *p = reinterpret_cast<const unsigned char *>(text);
    const unsigned char lead = p[0];
    size_t n = 0;
    uint32_t least = 0;
    if (lead < 0x80) return 1;
    if (lead >= 0xC2 && lead <= 0xDF) {
        n = 2;
        least = 0x80;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        n = 3;
        least = 0x800;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        n = 4;
        least = 0x10000;
    } else {
        return 0;
    }
    if (remaining < n) return 0;
    for (size_t i = 1; i < n; ++i) {
        if ((p[i] & 0xC0) != 0x80) return 0;
    }
    const uint32_t cp = DecodeCharacter(p, n);
    if (cp < least || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return 0;
    return n;
}

TextFace::~TextFace() {
    if (face_ != nullptr) FT_Done_Face(face_);
    if (library_ != nullptr) FT_Done_FreeType(library_);
}

bool TextFace::Open(const FontRequest &request) {
    if (face_ != nullptr || library_ != nullptr) return false;
    if (FT_Init_FreeType(&library_) != 0) {
        library_ = nullptr;
        return false;
    }
    const bool bold = request.weight >= 600;
    const int weight = bold ? FC_WEIGHT_BOLD : FC_WEIGHT_REGULAR;
    const int slant = request.italic != 0 ? FC_SLANT_ITALIC : FC_SLANT_ROMAN;
    const bool japanese = request.charSet == 128;
    char family[33];
    std::memcpy(family, request.faceName, sizeof family);
    family[32] = '\0';
    face_ = OpenMatchedFace(library_, family, weight, slant, japanese);
    if (face_ == nullptr) face_ = OpenMatchedFace(library_, kFallbackFamily, weight, slant, japanese);
    if (face_ == nullptr && FT_New_Face(library_, kFallbackFile, 0, &face_) != 0) face_ = nullptr;
    if (face_ == nullptr) return false;
    if (face_->charmap == nullptr) FT_Select_Charmap(face_, FT_ENCODING_UNICODE);
    emboldened_ = bold && (face_->style_flags & FT_STYLE_FLAG_BOLD) == 0;
    slanted_ = request.italic != 0 && (face_->style_flags & FT_STYLE_FLAG_ITALIC) == 0;
    return true;
}

bool MakeTextFont(const TextFace &face, const FontRequest &request, TextFont &out) {
    FT_Face f = face.Face();
    if (f == nullptr || f->units_per_EM == 0) return false;
    const int32_t upem = f->units_per_EM;
    const int64_t ascentUnits = f->ascender;
    const int64_t descentUnits = -static_cast<int64_t>(f->descender);
    int64_t ppem = kDefaultPpem;
    if (request.height < 0) {
        ppem = -static_cast<int64_t>(request.height);
    } else if (request.height > 0) {
        // A cell height: the em that gives that ascent + descent.
        const int64_t cellUnits = ascentUnits + descentUnits > 0 ? ascentUnits + descentUnits : upem;
        ppem = (static_cast<int64_t>(request.height) * upem + cellUnits / 2) / cellUnits;
        if (ppem < 1) ppem = 1;
    }
    if (ppem > 0x7FFF) ppem = 0x7FFF;  // beyond what any surface here holds
    TextFont font;
    font.face = &face;
    font.ppem = static_cast<int32_t>(ppem);
    font.ascent = UnitsToPixels(ascentUnits, font.ppem, upem);
    font.cellHeight = font.ascent + UnitsToPixels(descentUnits, font.ppem, upem);
    if (font.cellHeight < 1) font.cellHeight = 1;
    switch (request.escapement) {
        case 900:
        case 1800:
        case 2700: font.escapement = request.escapement; break;
        default: font.escapement = 0; break;
    }
    font.underline = request.underline != 0;
    font.strikeOut = request.strikeOut != 0;
    out = font;
    return true;
}

int32_t TextExtent(const TextFont &font, const char *text, size_t bytes, int32_t *cx, int32_t *cy) {
    if (font.face == nullptr || font.face->Face() == nullptr) return 0;
    FT_Face f = font.face->Face();
    int64_t width = 0;
    ForEachCharacter(text, bytes, [&](uint32_t cp) {
        FT_Fixed advance = 0;
        if (FT_Get_Advance(f, FT_Get_Char_Index(f, cp), FT_LOAD_NO_SCALE, &advance) == 0) {
            width += UnitsToPixels(advance, font.ppem, f->units_per_EM);
        }
    });
    *cx = width > INT32_MAX ? INT32_MAX : static_cast<int32_t>(width);
    *cy = font.cellHeight;
    return 1;
}

int32_t DrawTextOnSurface(const TextSurface &surface, const TextFont &font, const char *text, size_t bytes, int32_t x,
                          int32_t y) {
    int32_t cx = 0;
    int32_t cy = 0;
    if (surface.bits == nullptr || TextExtent(font, text, bytes, &cx, &cy) == 0) return 0;
    FT_Face f = font.face->Face();
    if (FT_Set_Pixel_Sizes(f, 0, static_cast<FT_UInt>(font.ppem)) != 0) return 0;
    if (font.face->Slanted()) {
        // About 12 degrees of shear, as an oblique face leans: x' = x + 0.2 y, in 16.16.
        FT_Matrix shear{0x10000, 0x03333, 0, 0x10000};
        FT_Set_Transform(f, &shear, nullptr);
    } else {
        FT_Set_Transform(f, nullptr, nullptr);
    }
    const Drawing drawing(surface, font.escapement, x, y);
    // The opaque cell first, so that ink only ever lands on cleared pixels of this string.
    for (int64_t v = 0; v < cy; ++v) {
        for (int64_t u = 0; u < cx; ++u) drawing.Put(u, v, false);
    }
    int64_t pen = 0;
    bool drawn = true;
    ForEachCharacter(text, bytes, [&](uint32_t cp) {
        const FT_UInt glyph = FT_Get_Char_Index(f, cp);
        FT_Fixed advance = 0;
        if (FT_Get_Advance(f, glyph, FT_LOAD_NO_SCALE, &advance) != 0) advance = 0;
        const int32_t step = UnitsToPixels(advance, font.ppem, f->units_per_EM);
        if (FT_Load_Glyph(f, glyph, FT_LOAD_NO_HINTING | FT_LOAD_NO_BITMAP) != 0) {
            drawn = false;
            pen += step;
            return;
        }
        FT_GlyphSlot slot = f->glyph;
        if (slot->format == FT_GLYPH_FORMAT_OUTLINE && font.face->Emboldened()) {
            FT_Outline_Embolden(&slot->outline, font.ppem * 64 / 24 + 16);
        }
        if (FT_Render_Glyph(slot, FT_RENDER_MODE_MONO) != 0) {
            drawn = false;
            pen += step;
            return;
        }
        const FT_Bitmap &bitmap = slot->bitmap;
        if (bitmap.pixel_mode == FT_PIXEL_MODE_MONO) {
            const int64_t left = pen + slot->bitmap_left;
            const int64_t top = static_cast<int64_t>(font.ascent) - slot->bitmap_top;
            for (unsigned int by = 0; by < bitmap.rows; ++by) {
                const unsigned char *row = bitmap.buffer + static_cast<ptrdiff_t>(by) * bitmap.pitch;
                for (unsigned int bx = 0; bx < bitmap.width; ++bx) {
                    if (row[bx >> 3] & (0x80u >> (bx & 7))) drawing.Put(left + bx, top + by, true);
                }
            }
        }
        pen += step;
    });
    FT_Set_Transform(f, nullptr, nullptr);
    const auto drawLine = [&](TextLine line) {
        for (int64_t v = line.top; v < static_cast<int64_t>(line.top) + line.thickness; ++v) {
            for (int64_t u = 0; u < cx; ++u) drawing.Put(u, v, true);
        }
    };
    if (font.underline) drawLine(UnderlineOf(f, font));
    if (font.strikeOut) drawLine(StrikeOutOf(f, font));
    return drawn ? cy : 0;
}

}  // namespace tz3
