// TZ3PasteImage: the export of the paste. The frame opens the dialog, unpacks the source pair (a
// null pair is no image, which the core refuses) and runs the core with its own progress span.
#include "compose/paste_image_core.h"
#include "frame/call.h"

extern "C" TZ3_API DibHandle TZ3PasteImage(DibHandle target, const DibPair *source, int32_t angle,
                                           int32_t mirror, int32_t flip, int32_t opacity, int32_t backRed,
                                           int32_t backGreen, int32_t backBlue, int32_t pasteX,
                                           int32_t pasteY, int32_t keepSize, int32_t noDialog,
                                           intptr_t dialog1, intptr_t dialog2, intptr_t dialog3) {
    using namespace tz3;
    return RunExport<DibHandle>(noDialog, dialog1, dialog2, dialog3, [&] {
        const DibHandle image = source != nullptr ? source->image : nullptr;
        const DibHandle mask = source != nullptr ? source->mask : nullptr;
        return PasteImageCore(target, image, mask, angle, mirror, flip, opacity, backRed, backGreen, backBlue,
                              pasteX, pasteY, keepSize, noDialog, 0);
    });
}
