// What every Bundle must do: the installed resources and the pretended ones.

#include "Platform/Fake/FakeBundle.h"
#include "Platform/Unix/UnixBundle.h"
#include "Tests/Support/TemporaryFolder.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

namespace corvid {
namespace {

/// Both hold the picture "picture" and the text "greeting", and lack "missing".
struct RealBundle {
    TemporaryFolder folder;
    UnixBundle bundle{"com.corvid.desktop.widget.FinderExt", folder.path()};
    RealBundle() {
        std::ofstream(folder / "picture.png") << "png";
        std::filesystem::create_directory(folder / "en.lproj");
        std::ofstream(folder / "en.lproj/Localizable.strings") << "\"greeting\" = \"Hello\";\n";
    }
};

struct PretendedBundle {
    FakeBundle bundle;
    PretendedBundle() {
        bundle.removeImage("missing");
        bundle.setLocalizedString("greeting", "Hello");
    }
};

template <class Implementation>
class BundleConformance : public testing::Test {
protected:
    Implementation made;
};

using Bundles = testing::Types<RealBundle, PretendedBundle>;
TYPED_TEST_SUITE(BundleConformance, Bundles);

TYPED_TEST(BundleConformance, HasTheIdentifierThatItWasGiven) {
    EXPECT_EQ(this->made.bundle.bundleIdentifier(), "com.corvid.desktop.widget.FinderExt");
}

TYPED_TEST(BundleConformance, MakesANewPictureForEachLookUp) {
    const auto first = this->made.bundle.imageNamed("picture");
    const auto second = this->made.bundle.imageNamed("picture");
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_NE(first, second);
    EXPECT_EQ(first->name, "picture");
    EXPECT_EQ(this->made.bundle.imageNamed("missing"), nullptr);
}

TYPED_TEST(BundleConformance, AKeyWithoutATextIsItsOwnText) {
    EXPECT_EQ(this->made.bundle.localizedString("no such key"), "no such key");
    EXPECT_EQ(this->made.bundle.localizedString(""), "");
}

TYPED_TEST(BundleConformance, AKeyWithATextGivesIt) {
    EXPECT_EQ(this->made.bundle.localizedString("greeting"), "Hello");
}

TEST(UnixBundle, LooksForPicturesWhereTheyAreInstalled) {
    const TemporaryFolder folder;
    std::filesystem::create_directory(folder / "badges");
    std::ofstream(folder / "badges/one.png") << "png";
    std::ofstream(folder / "badges/two.icns") << "icns";
    const UnixBundle bundle(std::nullopt, folder.path());
    EXPECT_EQ(bundle.bundleIdentifier(), std::nullopt);
    EXPECT_EQ(bundle.imageNamed("one")->path, folder / "badges/one.png");
    EXPECT_EQ(bundle.imageNamed("two.icns")->path, folder / "badges/two.icns");
    EXPECT_EQ(bundle.imageNamed("two"), nullptr);
    EXPECT_EQ(bundle.imageNamed("badges/one"), nullptr);
    EXPECT_EQ(bundle.imageNamed("badges"), nullptr);
    EXPECT_EQ(bundle.imageNamed(".."), nullptr);
    EXPECT_EQ(bundle.imageNamed(""), nullptr);
}

TEST(UnixBundle, FindsItsResourcesBesideTheProgram) {
    const auto program = std::filesystem::read_symlink("/proc/self/exe");
    EXPECT_EQ(UnixBundle(std::nullopt).resourceFolder(),
              (program.parent_path().parent_path() / "share/corvid").string());
}

} // namespace
} // namespace corvid
