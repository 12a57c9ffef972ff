/*
 * tz3effect: image effects on packed device-independent bitmaps held in memory blocks.
 *
 * Every image is one block: a 40-byte header, a colour table, and bottom-up pixel rows padded to
 * four bytes, at 1, 4, 8, 16, 24 or 32 bits per pixel. Every operation leaves the caller's image as
 * it was and returns a new block (or a pair of blocks), which the caller frees with Tz3GlobalFree.
 * Tz3GetErrorStatus tells how the last call on this thread ended.
 */
#ifndef TZ3EFFECT_H
#define TZ3EFFECT_H

#include <stddef.h>
#include <stdint.h>

#if defined(_WIN32)
#if defined(TZ3_BUILDING)
#define TZ3_API __declspec(dllexport)
#else
#define TZ3_API __declspec(dllimport)
#endif
#else
#define TZ3_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

typedef struct Tz3Block *DibHandle;

typedef struct DibPair {
    DibHandle image;
    DibHandle mask;
} DibPair;

/* Points and rectangles count y from the top of the picture. */
typedef struct Tz3Point {
    int32_t x, y;
} Tz3Point;

typedef struct Tz3Rect {
    int32_t left, top, right, bottom;
} Tz3Rect;

/* Status codes of Tz3GetErrorStatus. */
enum {
    TZ3_OK = 0,
    TZ3_CANCELLED = 1,
    TZ3_DIALOG_FAILED = 2,
    TZ3_NO_MEMORY = 3,
    TZ3_BAD_DEPTH = 4,
    TZ3_BAD_PARAMETER = 5,
    TZ3_BAD_IMAGE = 7,
    TZ3_DRAWING_FAILED = 9
};

/* ---- Memory blocks shared by caller and library ---- */

#define TZ3_GMEM_MOVEABLE 2u
#define TZ3_GMEM_ZEROINIT 64u

TZ3_API DibHandle Tz3GlobalAlloc(uint32_t flags, size_t bytes);
TZ3_API void *Tz3GlobalLock(DibHandle h);
TZ3_API int32_t Tz3GlobalUnlock(DibHandle h);
TZ3_API DibHandle Tz3GlobalFree(DibHandle h);
TZ3_API size_t Tz3GlobalSize(DibHandle h);
TZ3_API DibHandle Tz3GlobalHandle(const void *p);
TZ3_API size_t Tz3LiveBlocks(void);
TZ3_API void Tz3SetAllocator(void *(*alloc)(void *user, size_t bytes), void (*release)(void *user, void *p),
                             void *user);

/* ---- Status, progress and the dialog (per thread) ---- */

TZ3_API int32_t Tz3GetErrorStatus(void);
TZ3_API void Tz3SetProgressHandler(int32_t (*fn)(void *user, int32_t current, int32_t total, int32_t percentLow,
                                                 int32_t percentHigh, int32_t noDialog),
                                   void *user);
TZ3_API void Tz3SetDialogHandlers(int32_t (*open)(void *user, intptr_t a, intptr_t b, intptr_t c),
                                  void (*close)(void *user), void *user);

/* ---- The exports ---- */

#define TZ3_REGION_ARGS                                                                                     \
    const DibPair *pair, int32_t kind, const Tz3Point *points, int32_t count, const Tz3Rect *rect,          \
        int32_t inside
#define TZ3_DIALOG_ARGS int32_t noDialog, intptr_t dialog1, intptr_t dialog2, intptr_t dialog3

/* Tone and colour */
TZ3_API DibHandle TZ3RGBRev(TZ3_REGION_ARGS, int32_t red, int32_t green, int32_t blue, TZ3_DIALOG_ARGS);
TZ3_API DibHandle TZ3RGBGamma(TZ3_REGION_ARGS, double kRed, double kGreen, double kBlue, TZ3_DIALOG_ARGS);
TZ3_API DibHandle TZ3RGBLevel(TZ3_REGION_ARGS, int32_t red, int32_t green, int32_t blue, TZ3_DIALOG_ARGS);
TZ3_API DibHandle TZ3YCCGamma(TZ3_REGION_ARGS, double kY, double kCr, double kCb, TZ3_DIALOG_ARGS);
TZ3_API DibHandle TZ3YCCLevel(TZ3_REGION_ARGS, int32_t y, int32_t cr, int32_t cb, TZ3_DIALOG_ARGS);
TZ3_API DibHandle TZ3YCCRev(TZ3_REGION_ARGS, int32_t y, int32_t cr, int32_t cb, TZ3_DIALOG_ARGS);
TZ3_API DibHandle TZ3Chroma(TZ3_REGION_ARGS, int32_t amount, TZ3_DIALOG_ARGS);
TZ3_API DibHandle TZ3SetGray(DibHandle image, TZ3_DIALOG_ARGS);

/* Colour depth conversion */
TZ3_API DibHandle TZ3ConvertColor(DibHandle image, int32_t target, int32_t fixedPalette, int32_t dither,
                                  int32_t threshold, TZ3_DIALOG_ARGS);

/* Neighbourhood filters */
TZ3_API DibHandle TZ3CustomFilter(TZ3_REGION_ARGS, const int32_t *kernel, int32_t divisor, int32_t bias,
                                  int32_t filterRed, int32_t filterGreen, int32_t filterBlue, TZ3_DIALOG_ARGS);
TZ3_API DibHandle TZ3Sharp(TZ3_REGION_ARGS, int32_t strength, TZ3_DIALOG_ARGS);
TZ3_API DibHandle TZ3AntiAlias(TZ3_REGION_ARGS, TZ3_DIALOG_ARGS);
TZ3_API DibHandle TZ3Emboss(TZ3_REGION_ARGS, int32_t direction, int32_t depth, int32_t bias, TZ3_DIALOG_ARGS);
TZ3_API DibHandle TZ3Shade(TZ3_REGION_ARGS, int32_t radius, TZ3_DIALOG_ARGS);
TZ3_API DibHandle TZ3Mosaic(TZ3_REGION_ARGS, int32_t tileWidth, int32_t tileHeight, TZ3_DIALOG_ARGS);
TZ3_API DibHandle TZ3Outline(TZ3_REGION_ARGS, int32_t channel, int32_t op, int32_t gain, TZ3_DIALOG_ARGS);
TZ3_API DibHandle TZ3RemoveNoise(TZ3_REGION_ARGS, int32_t method, int32_t level, TZ3_DIALOG_ARGS);

/* Geometry */
TZ3_API DibPair TZ3Resize(const DibPair *source, int32_t newWidth, int32_t newHeight, int32_t interpolate,
                          TZ3_DIALOG_ARGS);
TZ3_API int32_t TZ3ResizeEx(const DibPair *source, DibPair *result, int32_t newWidth, int32_t newHeight,
                            int32_t interpolate, TZ3_DIALOG_ARGS);
TZ3_API DibPair TZ3Rotation(const DibPair *source, int32_t angle, int32_t flipHorizontal, int32_t flipVertical,
                            int32_t interpolate, int32_t backRed, int32_t backGreen, int32_t backBlue,
                            int32_t keepSize, TZ3_DIALOG_ARGS);
TZ3_API int32_t TZ3RotationEx(const DibPair *source, DibPair *result, int32_t angle, int32_t flipHorizontal,
                              int32_t flipVertical, int32_t interpolate, int32_t backRed, int32_t backGreen,
                              int32_t backBlue, int32_t keepSize, TZ3_DIALOG_ARGS);
TZ3_API DibHandle TZ3Affine(DibHandle image, int32_t x0, int32_t y0, int32_t x1, int32_t y1, int32_t x2,
                            int32_t y2, int32_t x3, int32_t y3, TZ3_DIALOG_ARGS);
TZ3_API DibHandle TZ3Panorama(DibHandle first, DibHandle second, int32_t seamSide, int32_t x1a, int32_t y1a,
                              int32_t x1b, int32_t y1b, int32_t x2a, int32_t y2a, int32_t x2b, int32_t y2b,
                              int32_t backRed, int32_t backGreen, int32_t backBlue, TZ3_DIALOG_ARGS);

/* Selection */
TZ3_API DibPair TZ3SelectImage(DibHandle image, int32_t kind, const Tz3Point *points, int32_t count,
                               const Tz3Rect *rect, int32_t inside, int32_t fillRed, int32_t fillGreen,
                               int32_t fillBlue, TZ3_DIALOG_ARGS);
TZ3_API int32_t TZ3SelectImageEx(DibHandle image, DibPair *result, int32_t kind, const Tz3Point *points,
                                 int32_t count, const Tz3Rect *rect, int32_t inside, int32_t fillRed,
                                 int32_t fillGreen, int32_t fillBlue, TZ3_DIALOG_ARGS);
TZ3_API DibPair TZ3AutoSelectImage(DibHandle image, int32_t kind, const Tz3Point *points, int32_t count,
                                   const Tz3Rect *rect, int32_t inside, int32_t keyRed, int32_t keyGreen,
                                   int32_t keyBlue, int32_t metric, int32_t tolerance, TZ3_DIALOG_ARGS);
TZ3_API int32_t TZ3AutoSelectImageEx(DibHandle image, DibPair *result, int32_t kind, const Tz3Point *points,
                                     int32_t count, const Tz3Rect *rect, int32_t inside, int32_t keyRed,
                                     int32_t keyGreen, int32_t keyBlue, int32_t metric, int32_t tolerance,
                                     TZ3_DIALOG_ARGS);

/* Images and compositing */
TZ3_API DibHandle TZ3CreateImage(int32_t width, int32_t height, int32_t bitCount, int32_t red, int32_t green,
                                 int32_t blue, TZ3_DIALOG_ARGS);
TZ3_API DibHandle TZ3CopyImage(DibHandle image, TZ3_DIALOG_ARGS);
TZ3_API DibHandle TZ3PasteImage(DibHandle target, const DibPair *source, int32_t angle, int32_t mirror,
                                int32_t flip, int32_t opacity, int32_t backRed, int32_t backGreen,
                                int32_t backBlue, int32_t pasteX, int32_t pasteY, int32_t keepSize,
                                TZ3_DIALOG_ARGS);
TZ3_API DibHandle TZ3Layer(DibHandle base, DibHandle over, int32_t opacity, int32_t keyRed, int32_t keyGreen,
                           int32_t keyBlue, int32_t backRed, int32_t backGreen, int32_t backBlue, int32_t layerX,
                           int32_t layerY, int32_t keepSize, TZ3_DIALOG_ARGS);

/* Clipboard */
TZ3_API DibHandle TZ3GetFromClipBrd(void *window, TZ3_DIALOG_ARGS);
TZ3_API int32_t TZ3SetToClipBrd(void *window, DibHandle image, TZ3_DIALOG_ARGS);
TZ3_API int32_t TZ3IsClipBrdData(void *window);
TZ3_API int32_t TZ3ClearClipBrd(void *window);

/* Hidden text */
TZ3_API DibHandle TZ3SetSecretImage(DibHandle image, DibHandle stamp, const char *text, const char *faceName,
                                    int32_t pointSize, int32_t bold, int32_t italic, int32_t underline,
                                    int32_t strikeOut, int32_t direction, int32_t angle, int32_t strength,
                                    int32_t x0, int32_t y0, int32_t x1, int32_t y1, TZ3_DIALOG_ARGS);
TZ3_API DibHandle TZ3CheckSecretImage(DibHandle plain, DibHandle marked, int32_t threshold, TZ3_DIALOG_ARGS);

#undef TZ3_REGION_ARGS
#undef TZ3_DIALOG_ARGS

#ifdef __cplusplus
}
#endif

#endif /* TZ3EFFECT_H */
