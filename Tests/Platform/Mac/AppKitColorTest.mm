#import "Platform/Mac/AppKitColor.h"

#include <gtest/gtest.h>

namespace corvid {
namespace {

TEST(AppKitColorTest, TakesEveryPart) {
    NSColor* color = appKitColor(colorFromHex("#ff8033"));
    EXPECT_DOUBLE_EQ([color redComponent], 1.0);
    EXPECT_NEAR([color greenComponent], 128 / 255.0, 1e-6);
    EXPECT_NEAR([color blueComponent], 51 / 255.0, 1e-6);
    EXPECT_DOUBLE_EQ([color alphaComponent], 1.0);
}

TEST(AppKitColorTest, GreyIsTheSystemsOwn) {
    EXPECT_TRUE([appKitColor(colorFromHex("#fff")) isEqual:[NSColor grayColor]]);
    EXPECT_FALSE([appKitColor(colorFromHex("808080")) isEqual:[NSColor grayColor]]);
}

} // namespace
} // namespace corvid
