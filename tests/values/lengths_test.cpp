#include "keel/values/lengths.h"

#include <gtest/gtest.h>
#include <vector>

namespace keel {
namespace {

std::vector<double> Raws(const QLengths& lengths) {
    const QLength* each = lengths;
    std::vector<double> raws;
    for (int i = 0; i < QLengths::Count; ++i)
        raws.push_back(each[i].GetRaw());
    return raws;
}

QLengths Of(double a, double b, double c, double d) {
    QLengths lengths;
    lengths.Set(QLength::FromRaw(a), QLength::FromRaw(b), QLength::FromRaw(c), QLength::FromRaw(d));
    return lengths;
}

TEST(QLengths, StartsAtZeroAndSetFillsOneEachOrAlternatesWidthAndDepth) {
    EXPECT_EQ(Raws(QLengths()), (std::vector<double>{0, 0, 0, 0}));
    QLengths lengths;
    lengths.Set(QLength::FromRaw(5));
    EXPECT_EQ(Raws(lengths), (std::vector<double>{5, 5, 5, 5}));
    EXPECT_EQ(Raws(Of(1, 2, 3, 4)), (std::vector<double>{1, 2, 3, 4}));
    lengths.SetWD(QLength::FromRaw(600), QLength::FromRaw(300));
    EXPECT_EQ(Raws(lengths), (std::vector<double>{600, 300, 600, 300}));
}

TEST(QLengths, ThePointerReachesAndChangesTheElements) {
    QLengths lengths = Of(1, 2, 3, 4);
    QLength* each = lengths;
    each[2] = QLength::FromRaw(30);
    EXPECT_EQ(lengths[2].GetRaw(), 30);
    EXPECT_EQ(Raws(lengths), (std::vector<double>{1, 2, 30, 4}));
}

TEST(QLengths, ArithmeticGoesElementByElement) {
    QLengths lengths = Of(1, 2, 3, 4);
    lengths *= 3;
    EXPECT_EQ(Raws(lengths), (std::vector<double>{3, 6, 9, 12}));
    lengths /= 2;
    EXPECT_EQ(Raws(lengths), (std::vector<double>{1.5, 3, 4.5, 6}));
    lengths += Of(10, 20, 30, 40);
    EXPECT_EQ(Raws(lengths), (std::vector<double>{11.5, 23, 34.5, 46}));
    lengths -= Of(1.5, 3, 4.5, 6);
    EXPECT_EQ(Raws(lengths), (std::vector<double>{10, 20, 30, 40}));
    const QLengths copy = lengths;
    lengths *= 2;
    EXPECT_EQ(Raws(copy), (std::vector<double>{10, 20, 30, 40})) << "copies are independent";
}

} // namespace
} // namespace keel
