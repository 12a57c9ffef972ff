#include "region_options.h"

#include <string>
#include <utility>

namespace tz3cli {

const char kRegionUsage[] = "[--polygon X,Y,X,Y,... | --ellipse L,T,R,B | --mask FILE] [--outside]";

namespace {

void SetShape(RegionOptions &region, int32_t kind) {
    if (region.kind != 1) throw UsageError("only one of --polygon, --ellipse and --mask may be given");
    region.kind = kind;
}

}  // namespace

bool TakeRegionOption(ArgReader &reader, RegionOptions &region) {
    if (!reader.AtOption()) return false;
    const std::string name = reader.OptionName();
    if (name == "--polygon") {
        SetShape(region, 2);
        const std::string text = reader.TakeValue();
        std::vector<int32_t> values;
        if (!ParseIntList(text, values) || values.size() % 2 != 0 || values.size() < 4) {
            throw UsageError("--polygon needs at least two points as X,Y,X,Y,... (got '" + text + "')");
        }
        for (size_t i = 0; i < values.size(); i += 2)
            region.points.push_back(Tz3Point{values[i], values[i + 1]});
        return true;
    }
    if (name == "--ellipse") {
        SetShape(region, 3);
        const std::string text = reader.TakeValue();
        std::vector<int32_t> values;
        if (!ParseIntList(text, values) || values.size() != 4) {
            throw UsageError("--ellipse needs LEFT,TOP,RIGHT,BOTTOM (got '" + text + "')");
        }
        region.rect = Tz3Rect{values[0], values[1], values[2], values[3]};
        return true;
    }
    if (name == "--mask") {
        SetShape(region, 0);
        region.maskPath = reader.TakeValue();
        if (region.maskPath.empty()) throw UsageError("--mask needs a file name");
        return true;
    }
    if (name == "--outside") {
        reader.TakeFlag();
        region.outside = true;
        return true;
    }
    return false;
}

void CheckRegionOptions(const RegionOptions &region) {
    if (region.outside && region.kind != 2 && region.kind != 3) {
        throw UsageError("--outside needs --polygon or --ellipse");
    }
}

RegionCall MakeRegionCall(const RegionOptions &region, DibHandle image) {
    RegionCall call;
    call.pair.image = image;
    call.kind = region.kind;
    call.points = region.points;
    call.rect = region.rect;
    call.inside = region.outside ? 0 : 1;
    if (region.kind != 0) return call;

    LoadedImage mask = LoadImageFile(region.maskPath);
    int32_t width = 0, height = 0;
    {
        LockedDib imageBytes(image);
        width = ReadI32(imageBytes.Data() + 4);
        height = ReadI32(imageBytes.Data() + 8);
    }
    const ImageInfo &m = mask.info;
    if (m.bitCount != 1 || m.width != width || m.height != height) {
        throw Failure(region.maskPath + ": mask must be a 1-bit image of " + std::to_string(width) + " x " +
                      std::to_string(height) + " (it is " + std::to_string(m.width) + " x " +
                      std::to_string(m.height) + ", " + std::to_string(m.bitCount) + " bits)");
    }
    call.mask = std::move(mask.dib);
    call.pair.mask = call.mask.Get();
    return call;
}

}  // namespace tz3cli
