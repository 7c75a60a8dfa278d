#include "yaml_document.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace cfmctl {
namespace {

using testing::HasSubstr;
using testing::SizeIs;

TEST(AYamlDocument, KeepsDuplicateKeysAndTheirPlaces) {
  const YamlDocument document("a: 1\nb:\n  - x\na: 2\n");
  ASSERT_NE(document.root(), nullptr);
  const auto& children = document.root()->children;
  ASSERT_THAT(children, SizeIs(6));
  EXPECT_EQ(children[4]->scalar, "a");
  EXPECT_EQ(children[4]->place.line, 4);
  EXPECT_EQ(children[4]->place.column, 1);
  EXPECT_EQ(children[3]->children[0]->place.line, 3);
  EXPECT_EQ(children[3]->children[0]->place.column, 5);
}

TEST(AYamlDocument, ResolvesAliases) {
  const YamlDocument document("a: &x {k: v}\nb: *x\n");
  ASSERT_NE(document.root(), nullptr);
  EXPECT_EQ(document.root()->children[1], document.root()->children[3]);
}

TEST(AYamlDocument, RefusesAnAliasInsideOfWhatItStandsFor) {
  const YamlDocument document("a: &x [*x]\n");
  ASSERT_TRUE(document.error());
  EXPECT_EQ(document.root(), nullptr);
}

TEST(AYamlDocument, TellsWhereItsSyntaxIsWrong) {
  const YamlDocument document("a: 1\nb: [1, 2\nc: 3\n");
  ASSERT_TRUE(document.error());
  EXPECT_THAT(document.error()->what, HasSubstr("not valid YAML"));
  EXPECT_GE(document.error()->place.line, 2);
  EXPECT_EQ(document.root(), nullptr);
}

TEST(AYamlDocument, IsTheOnlyOneOfItsFile) {
  const YamlDocument document("a: 1\n---\nb: 2\n");
  ASSERT_TRUE(document.error());
  EXPECT_EQ(document.error()->place.line, 3);
}

TEST(AYamlDocument, HasNoRootWithoutContent) {
  EXPECT_EQ(YamlDocument("").root(), nullptr);
  EXPECT_EQ(YamlDocument("# nothing\n").root(), nullptr);
  EXPECT_FALSE(YamlDocument("").error());
}

TEST(AYamlDocument, SurvivesDeepNestingAndBinaryGarbage) {
  EXPECT_TRUE(YamlDocument(std::string(100000, '[')).error());
  EXPECT_NO_THROW(YamlDocument(std::string("\x00\xff\xfe\x1b: \x80", 8)));
}

}  // namespace
}  // namespace cfmctl
