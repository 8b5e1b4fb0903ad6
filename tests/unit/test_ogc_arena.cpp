// The memory that the texts of a document stand in.
#include "xml/arena.h"

#include <gtest/gtest.h>

namespace {

TEST(OgcArena, TextsThatGrowInTurnKeepTheirContent) {
  ogc::xml::Arena arena;
  std::vector<const char*> texts(5, nullptr);
  std::vector<std::string> expected(texts.size());
  for (std::size_t round = 0; round < 3000; ++round) {
    const std::size_t at = (round + round / 3) % texts.size();
    const std::string piece(1 + round % 39, static_cast<char>('a' + at));
    arena.append(&texts[at], piece, "-");
    expected[at] += (expected[at].empty() ? "" : "-") + piece;
    ASSERT_EQ(*arena.make<int>(), 0);
  }
  for (std::size_t at = 0; at < texts.size(); ++at) EXPECT_TRUE(texts[at] == expected[at]) << at;
  for (std::size_t left = 15; left < 25; ++left) { // of the first chunk
    ogc::xml::Arena full;
    const std::string most((16 << 10) - 1 - left, 'x'), piece(10, 'y');
    const char* text = full.copy(most);
    for (int i = 0; i < 2; ++i) full.append(&text, piece, "");
    EXPECT_EQ(full.size() == 16 << 10, left >= 20) << left;
    EXPECT_EQ(text, std::string(most).append(piece).append(piece));
  }
  const char* grown = arena.copy("x");
  EXPECT_STREQ(arena.copy("-"), "-");
  arena.append(&grown, "y", ""); // has room for three more now
  const char* next = arena.copy("z");
  arena.append(&grown, "1234", "");
  EXPECT_EQ(grown + std::string(next), "xy1234z");
  arena.release();
  EXPECT_STREQ(arena.copy("anew"), "anew");
}

} // namespace
