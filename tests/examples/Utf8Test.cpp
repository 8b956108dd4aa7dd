#include "Utf8.h"

#include <gtest/gtest.h>

namespace {

using namespace guide;

TEST(GuideUtf8Test, AsciiTakesOneColumnACharacter) {
    EXPECT_EQ(0, DisplayWidth(""));
    EXPECT_EQ(5, DisplayWidth("Boxer"));
}

TEST(GuideUtf8Test, AccentsAndCyrillicTakeOneColumnACharacter) {
    EXPECT_EQ(17, DisplayWidth("Cinéma Bellefosse"));
    EXPECT_EQ(11, DisplayWidth("Тихий Берег"));
}

TEST(GuideUtf8Test, CombiningMarksTakeNoColumn) {
    EXPECT_EQ(1, DisplayWidth("e\xCC\x81"));
}

TEST(GuideUtf8Test, EastAsianCharactersAndPicturesTakeTwo) {
    EXPECT_EQ(12, DisplayWidth("月見台テレビ"));
    EXPECT_EQ(4, DisplayWidth("한국"));
    EXPECT_EQ(2, DisplayWidth("、"));
    EXPECT_EQ(2, DisplayWidth("\xF0\x9F\x8E\xAC"));
}

TEST(GuideUtf8Test, BlocksAndRulesOfTheTablesTakeOne) {
    EXPECT_EQ(6, DisplayWidth("█░─–…·"));
}

TEST(GuideUtf8Test, EveryBrokenByteTakesOneColumn) {
    EXPECT_EQ(2, DisplayWidth("\xFF\xFE"));
    EXPECT_EQ(2, DisplayWidth("\xE6\x9C"));  // cut off
    EXPECT_EQ(2, DisplayWidth("\xC3(")) << "a lead byte, then another character";
}

TEST(GuideUtf8Test, TextThatFitsIsNotCut) {
    EXPECT_EQ("Boxer", CutToWidth("Boxer", 5));
    EXPECT_EQ("月見", CutToWidth("月見", 4));
}

TEST(GuideUtf8Test, CutTextEndsWithAnEllipsisInsideTheWidth) {
    EXPECT_EQ("Box…", CutToWidth("Boxers", 4));
    EXPECT_EQ("Ciné…", CutToWidth("Cinéma", 5));
    EXPECT_EQ("…", CutToWidth("Boxers", 1));
    EXPECT_EQ("", CutToWidth("Boxers", 0));
}

TEST(GuideUtf8Test, AWideCharacterIsNotCutInHalf) {
    EXPECT_EQ("月…", CutToWidth("月見台", 4));
    EXPECT_EQ("月見…", CutToWidth("月見台", 5));
}

TEST(GuideUtf8Test, CapitalsAreFoldedInLatinGreekAndCyrillic) {
    EXPECT_EQ("harbour 9", FoldCase("HaRBouR 9"));
    EXPECT_EQ("été œuvre žižkov łódź", FoldCase("ÉTÉ ŒUVRE ŽIŽKOV ŁÓDŹ"));
    EXPECT_EQ("αβγω", FoldCase("ΑΒΓΩ"));
    EXPECT_EQ("ёжик поезд", FoldCase("ЁЖИК ПОЕЗД"));
}

TEST(GuideUtf8Test, WhatHasNoCapitalsStaysAsItIs) {
    EXPECT_EQ("×÷ß 月見台 é", FoldCase("×÷ß 月見台 é"));
    EXPECT_EQ("\xFF\xC3", FoldCase("\xFF\xC3"));
}

TEST(GuideUtf8Test, WellFormedTextIsUtf8) {
    EXPECT_TRUE(IsUtf8(""));
    EXPECT_TRUE(IsUtf8("aé月\xF0\x9F\x8E\xAC"));
}

TEST(GuideUtf8Test, BrokenOverlongSurrogateAndOutOfRangeBytesAreNotUtf8) {
    EXPECT_FALSE(IsUtf8("\x80"));
    EXPECT_FALSE(IsUtf8("\xC3"));
    EXPECT_FALSE(IsUtf8("\xC0\xAF"));
    EXPECT_FALSE(IsUtf8("\xE0\x80\xAF"));
    EXPECT_FALSE(IsUtf8("\xED\xA0\x80"));
    EXPECT_FALSE(IsUtf8("\xF4\x90\x80\x80"));
    EXPECT_FALSE(IsUtf8("\xF5\x80\x80\x80"));
}

}  // namespace
