// The text rasteriser: fonts from a face name, the extents of a string and its drawing onto a
// 1-bit surface, over FreeType with faces found by fontconfig.
//
// Text is UTF-8, and a character is one code point: a byte that starts no valid UTF-8 sequence is
// skipped wherever text is walked, measured or drawn.
//
// Fonts follow the usual logical-font rules: a negative height asks for a character (em) height
// of that many pixels, a positive one for a cell height (ascent + descent), 0 for a default size.
// The escapement turns the baseline counter-clockwise by 90, 180 or 270 degrees about the point
// where drawing starts; any other value draws unturned. Extents are those of the unturned string:
// the sum of the characters' advances, and the cell height.
//
// Drawing is opaque: the string's whole cell (its unturned extents, turned with the text) is
// cleared first, then the ink of each character is set, then an underline and a strikeout when the
// font has them. Pixels off the surface are dropped.
#pragma once

#include <cstddef>
#include <cstdint>

struct FT_LibraryRec_;
struct FT_FaceRec_;

namespace tz3 {

// The vertical dots per inch of the surface the stamps are drawn for.
constexpr int32_t kLogPixelsY = 96;
int32_t LogicalPixelsY();

// a x b / c in 64 bits, rounded to the nearest integer with halves away from zero; -1 when c is 0
// or the result leaves the 32-bit range.
int32_t MulDiv(int32_t a, int32_t b, int32_t c);

// Bytes of the UTF-8 character at text (at most `remaining` bytes are looked at), or 0 when the
// byte there starts no valid character (an overlong form, a surrogate or a value above U+10FFFF
// is no valid character).
size_t CharacterBytes(const char *text, size_t remaining);

// The fields of a logical font that a stamp varies.
struct FontRequest {
    int32_t height = 0;
    int32_t escapement = 0;  // tenths of a degree, counter-clockwise
    int32_t weight = 400;
    uint8_t italic = 0;
    uint8_t underline = 0;
    uint8_t strikeOut = 0;
    uint8_t charSet = 0;  // 128 asks for a face that covers Japanese
    char faceName[33] = {};
};

// A face opened for a run of fonts of one name, weight, slant and character set, which differ in
// size only. Closed with the record.
class TextFace {
public:
    TextFace() = default;
    TextFace(const TextFace &) = delete;
    TextFace &operator=(const TextFace &) = delete;
    ~TextFace();
    // The face fontconfig matches best to the request's name, weight, slant and character set,
    // falling back to DejaVu Sans. Weight and slant the face lacks are made up from its outlines.
    // False when no scalable face can be opened.
    bool Open(const FontRequest &request);
    bool IsOpen() const { return face_ != nullptr; }

    FT_FaceRec_ *Face() const { return face_; }
    // True when the face lacks the asked weight or slant and its outlines are thickened or sheared.
    bool Emboldened() const { return emboldened_; }
    bool Slanted() const { return slanted_; }

private:
    FT_LibraryRec_ *library_ = nullptr;
    FT_FaceRec_ *face_ = nullptr;
    bool emboldened_ = false;
    bool slanted_ = false;
};

// A font: a face at one size, with its escapement and its lines.
struct TextFont {
    const TextFace *face = nullptr;
    int32_t ppem = 0;        // character height in pixels
    int32_t ascent = 0;      // pixels above the baseline in the cell
    int32_t cellHeight = 0;  // ascent + descent, at least 1
    int32_t escapement = 0;  // 0, 900, 1800 or 2700
    bool underline = false;
    bool strikeOut = false;
};

// The font of the request's height and lines cut from the face. False when the face is not open.
bool MakeTextFont(const TextFace &face, const FontRequest &request, TextFont &out);

// Width and height of the unturned string; 1, or 0 when the font has no face.
int32_t TextExtent(const TextFont &font, const char *text, size_t bytes, int32_t *cx, int32_t *cy);

// A 1-bit surface over the rows of a bottom-up bitmap: surface row y (counted down from the top)
// is bitmap row height - 1 - y; bit 7 of a byte is its leftmost pixel; a set bit is ink.
struct TextSurface {
    uint8_t *bits = nullptr;
    int32_t width = 0;
    int32_t height = 0;
    int32_t stride = 0;
};

// Draws the string with the top-left corner of its unturned cell at (x, y), turned about that
// point by the font's escapement. The cell height (above 0), or 0 when it cannot be drawn.
int32_t DrawTextOnSurface(const TextSurface &surface, const TextFont &font, const char *text, size_t bytes,
                          int32_t x, int32_t y);

}  // namespace tz3
