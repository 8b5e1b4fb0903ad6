// The helpers of the handlers: texts, lists of names, and the memory that they stand in.
#include "ogc_client.h"

#include <sstream>

namespace {

/// Opens the helpers to tests.
class Helper : public ogc::xml::Handler {
public:
  explicit Helper(Client& client) : Handler(client, arena, versions) {}
  using Handler::addCurrentNode;
  using Handler::AppendStrings;
  using Handler::ParseConcatenatedValues;

  ogc::xml::Arena arena;

private:
  static constexpr ogc::xml::VersionRule versions{{}, "", ""};
};

/// The runs of a text that a row gives with "|" between them.
Lines runsOf(const std::string& row) {
  std::istringstream in(row);
  Lines runs;
  for (std::string run; std::getline(in, run, '|');) runs.push_back(run);
  return runs;
}

TEST_F(Ogc, TextsGrowByRuns) {
  Helper helper(client);
  const auto text = [&](bool trim, bool commas) {
    return [&, trim, commas](const std::string& row) {
      const char* text = nullptr;
      for (const std::string& run : runsOf(row)) helper.AppendStrings(&text, run, trim, commas);
      return shown(text);
    };
  };
  expectRows(text(false, false), {"a|b|c -> a b c", "a ,\r\n -> a ,\r\n", "|a| -> a", " -> -"});
  expectRows(text(false, true), {"a|b|c -> a, b, c"});
  expectRows(text(true, false), {"a ,\r\n|b,  -> a b", "a| ,\n|b -> a  b", " |a ->  a"});
}

TEST_F(Ogc, RunsOfNamesAreSplit) {
  const auto names = [this](const std::string& row) {
    Helper helper(client);
    xNodeStr_t* head = nullptr;
    helper.addCurrentNode(&head);
    for (const std::string& run : runsOf(row)) helper.ParseConcatenatedValues(run, 0);
    std::string all;
    for (const xNodeStr_t* node = head; node != nullptr; node = node->next) all += shown(node->str) + '|';
    return all;
  };
  const std::string name(1500, 'n');
  expectRows(names, {"EPSG:1 EPSG:2 -> EPSG:1|EPSG:2|", "a/p, a/g,a/t -> a/p|a/g|a/t|", "a   b   -> a|b|", "a ,b -> a|",
                     "a,,b -> a|", "  a ->   a|", "  a b ->   a|b|", "    ->    |", ",a -> -|a|", "a b|c d -> a|b c|d|",
                     name + " " + name + " -> " + name + '|' + name.substr(0, 1023) + '|'});
}

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
    const char* text = full.copy(std::string((16 << 10) - 1 - left, 'x'));
    full.append(&text, std::string(20, 'y'), "");
    EXPECT_EQ(full.size() == 16 << 10, left >= 20) << left;
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
