// `tz3 panorama`: its result, read back, is what TZ3Panorama gives when called directly on the same
// blocks; seam sides, background, usage errors, refused depths and cancellation.
#include <gtest/gtest.h>

#include "tool_test_support.h"

namespace tz3clitest {
namespace {

Bytes DirectPanorama(const Bytes &first, const Bytes &second, int seam, const std::vector<int32_t> &p,
                     const std::vector<int32_t> &back) {
    Block a(first), b(second);
    Block out(TZ3Panorama(a.h, b.h, seam, p[0], p[1], p[2], p[3], p[4], p[5], p[6], p[7], back[0], back[1],
                          back[2], 1, 0, 0, 0));
    EXPECT_NE(out.h, nullptr) << "status " << Tz3GetErrorStatus();
    return out.ToBytes();
}

class PanoramaCommandTest : public ToolTest {
  protected:
    void SetUp() override {
        ToolTest::SetUp();
        first_ = RandomDib(750, 24, 18, 24);
        second_ = RandomDib(751, 15, 12, 24);
        WriteFile(Path("a.bmp"), BmpFromDib(first_));
        WriteFile(Path("b.bmp"), BmpFromDib(second_));
    }
    Bytes first_, second_;
};

TEST_F(PanoramaCommandTest, MatchesTheDirectCallForEachSeamSide) {
    const std::vector<int32_t> p = {3, 4, 20, 9, 2, 10, 12, 3};
    const std::pair<const char *, int> sides[] = {{nullptr, 0}, {"none", 0}, {"left", 1}, {"right", 2}};
    for (const auto &side : sides) {
        std::vector<std::string> args = {"panorama",           Path("a.bmp"), Path("b.bmp"),
                                         Path("out.bmp"),      "--first",     "3,4,20,9",
                                         "--second=2,10,12,3", "--back",      "200,100,50"};
        if (side.first != nullptr) {
            args.push_back("--seam");
            args.push_back(side.first);
        }
        const ToolRun run = RunTool(args);
        ASSERT_EQ(run.exitCode, 0) << run.err;
        EXPECT_EQ(run.err, "");
        EXPECT_EQ(DibFromBmp(ReadFile(Path("out.bmp"))),
                  DirectPanorama(first_, second_, side.second, p, {200, 100, 50}))
            << (side.first != nullptr ? side.first : "no --seam");
    }
}

TEST_F(PanoramaCommandTest, APictureOtherThanTwentyFourBitsFailsWithStatusSevenAndWritesNothing) {
    WriteFile(Path("c.bmp"), BmpFromDib(RandomDib(752, 8, 8, 8)));
    const ToolRun run = RunTool({"panorama", Path("a.bmp"), Path("c.bmp"), Path("out.bmp"), "--first",
                                 "0,0,5,5", "--second", "0,0,3,3"});
    ExpectFailure(run, 1, "tz3: panorama: ");
    EXPECT_NE(run.err.find("(status 7)"), std::string::npos) << run.err;
    EXPECT_FALSE(FileExists(Path("out.bmp")));
}

TEST_F(PanoramaCommandTest, EqualPointsFailWithStatusFive) {
    const ToolRun run = RunTool({"panorama", Path("a.bmp"), Path("b.bmp"), Path("out.bmp"), "--first",
                                 "2,2,2,2", "--second", "0,0,3,3"});
    ExpectFailure(run, 1, "(status 5)");
    EXPECT_FALSE(FileExists(Path("out.bmp")));
}

TEST_F(PanoramaCommandTest, MalformedArgumentsAreUsageErrors) {
    const std::string a = Path("a.bmp"), b = Path("b.bmp"), out = Path("out.bmp");
    const std::vector<std::vector<std::string>> cases = {
        {"panorama", a, b, out, "--first", "0,0,5,5"},
        {"panorama", a, b, out, "--second", "0,0,5,5"},
        {"panorama", a, out, "--first", "0,0,5,5", "--second", "0,0,3,3"},
        {"panorama", a, b, out, "--first", "0,0,5", "--second", "0,0,3,3"},
        {"panorama", a, b, out, "--first", "0,0,5,5", "--second", "0,0,3,3", "--seam", "up"},
        {"panorama", a, b, out, "--first", "0,0,5,5", "--second", "0,0,3,3", "--back", "1,2"},
        {"panorama", a, b, Path("out.gif"), "--first", "0,0,5,5", "--second", "0,0,3,3"},
        {"panorama", a, b, out, "--first", "0,0,5,5", "--second", "0,0,3,3", "--angle", "4"},
    };
    for (const auto &args : cases) ExpectFailure(RunTool(args), 2, "(usage: tz3 panorama FIRST SECOND OUT");
    EXPECT_EQ(Entries(), (std::vector<std::string>{"a.bmp", "b.bmp"}));
}

TEST_F(PanoramaCommandTest, CancelledRunLeavesNoFileBehind) {
    const ToolRun run = RunTool({"panorama", Path("a.bmp"), Path("b.bmp"), Path("out.bmp"), "--first",
                                 "3,4,20,9", "--second", "2,10,12,3", "--seam", "left"},
                                {"TZ3_CANCEL_AFTER=3"});
    ExpectFailure(run, 130, "tz3: panorama: cancelled (status 1)");
    EXPECT_EQ(Entries(), (std::vector<std::string>{"a.bmp", "b.bmp"}));
}

}  // namespace
}  // namespace tz3clitest
