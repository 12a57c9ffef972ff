// The drawing of a text stamp, shared by TZ3SetSecretImage and its tests.
#pragma once

#include <cstdint>

#include "tz3effect.h"

namespace tz3 {

// The text and its look, carried by value through the drawing.
struct SecretTextStyle {
    uint32_t textColor = 0x00FFFFFF;  // white: ink sets bits
    uint32_t backColor = 0;           // black: cells clear to 0
    char faceName[33] = {};
    uint16_t pointSize = 0;
    uint8_t bold = 0;
    uint8_t italic = 0;
    uint8_t underline = 0;  // honoured only when the whole string is drawn at once
    uint8_t strikeOut = 0;  // likewise
    uint8_t transparentBack = 0;
    uint8_t direction = 0;  // 0 left to right, 1 right to left, 2 top to bottom, 3 bottom to top
    uint16_t angle = 0;     // 0, 90, 180 or 270 degrees counter-clockwise
    uint8_t alignX = 1;
    uint8_t alignY = 1;
    char text[129] = {};
};

// Draws the style's text, fitted and centred, into the box (left, top) .. (right, bottom) of the
// 1-bit stamp, whose top row is its last pixel row. 1 with status 0, or 0 with a status: 5 for a
// bad style or a box one pixel wide or high, 3 when the stamp cannot be locked, 2 when no font
// fits, 9 when drawing failed.
int32_t DrawSecretText(DibHandle stamp, int32_t left, int32_t top, int32_t right, int32_t bottom,
                       SecretTextStyle style);

// The most steps the font fitting takes: one per pixel of height from the asked size down to the
// smallest font, and three more to see that even the smallest one does not fit.
int64_t MaxFitSteps(int32_t startHeight);

}  // namespace tz3
