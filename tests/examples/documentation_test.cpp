// What the texts show and list is what the sources hold.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

using testing::HasSubstr;
using Lines = std::vector<std::string>;

const std::string kFolder = std::string(SOURCE_FOLDER) + "/";

Lines lines_of(std::istream& stream) {
  Lines lines;
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

Lines lines_of_file(const std::string& path) {
  std::ifstream file(kFolder + path);
  EXPECT_TRUE(file) << path;
  return lines_of(file);
}

std::string text_of_file(const std::string& path) {
  std::ifstream file(kFolder + path);
  EXPECT_TRUE(file) << path;
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

std::string without_margin(const std::string& line) {
  return line.substr(std::min(line.find_first_not_of(' '), line.size()));
}

// The lines after position `at` up to the one that is `end`, indentation aside.
Lines up_to(const Lines& lines, std::size_t at, const std::string& end) {
  Lines part;
  while (at < lines.size() && without_margin(lines[at]) != end) part.push_back(lines[at++]);
  EXPECT_LT(at, lines.size()) << "no line " << end;
  return part;
}

// The lines with the indentation that all of them share taken away.
Lines at_left_margin(Lines lines) {
  std::size_t margin = std::string::npos;
  for (const std::string& line : lines) margin = std::min(margin, line.find_first_not_of(' '));
  for (std::string& line : lines) line.erase(0, margin);
  return lines;
}

// A snippet of a text: the example that it is taken from, and its lines.
struct Snippet {
  std::string source;
  Lines lines;
};

std::vector<Snippet> snippets_of(const Lines& text) {
  const std::regex mark("<!-- from (\\S+) -->");
  std::vector<Snippet> snippets;
  for (std::size_t i = 0; i + 1 < text.size(); ++i) {
    std::smatch found;
    if (!std::regex_match(text[i], found, mark)) continue;
    EXPECT_EQ(text[i + 1], "```cpp") << found[1];
    snippets.push_back({found[1], up_to(text, i + 2, "```")});
  }
  return snippets;
}

Lines snippet_in(const std::string& source) {
  const Lines lines = lines_of_file(source);
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (without_margin(lines[i]) == "// [snippet]") {
      return at_left_margin(up_to(lines, i + 1, "// [snippet end]"));
    }
  }
  return {};
}

// The texts that show code: all of it comes from the examples.
const char* const kTextsWithCode[] = {"README.md", "docs/guide.md"};

TEST(Snippets, EqualTheExamplesToTheLetter) {
  for (const char* text : kTextsWithCode) {
    for (const Snippet& snippet : snippets_of(lines_of_file(text))) {
      EXPECT_FALSE(snippet.lines.empty()) << snippet.source;
      EXPECT_EQ(snippet.lines, snippet_in(snippet.source)) << text << " from " << snippet.source;
    }
  }
}

// The first screen shows the first job, the guide all of them.
TEST(Snippets, AreAllInTheGuideOnce) {
  std::multiset<std::string> shown;
  for (const Snippet& snippet : snippets_of(lines_of_file("docs/guide.md")))
    shown.insert(snippet.source);
  std::multiset<std::string> there;
  for (const auto& entry : std::filesystem::directory_iterator(kFolder + "examples")) {
    if (entry.path().extension() != ".cpp") continue;
    const std::string source = "examples/" + entry.path().filename().string();
    if (!snippet_in(source).empty()) there.insert(source);
  }
  EXPECT_EQ(shown, there);
  for (const char* job : {"first_table", "update_coefficients", "field_calibration", "compensate",
                          "safe_factory", "safe_field", "safe_coefficients", "safe_refinement"}) {
    EXPECT_EQ(shown.count("examples/" + std::string(job) + ".cpp"), 1u) << job;
  }
  EXPECT_EQ(snippets_of(lines_of_file("README.md")).size(), 1u);
}

TEST(Snippets, HoldAllCodeOfTheTexts) {
  for (const char* text : kTextsWithCode) {
    const Lines lines = lines_of_file(text);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "```cpp"),
              static_cast<std::ptrdiff_t>(snippets_of(lines).size()))
        << text;
  }
}

TEST(Guide, ListsEveryStatusWithItsNumber) {
  const std::string guide = text_of_file("docs/guide.md");
  const std::string header = text_of_file("include/kestrane/records.h");
  const std::regex status("(KESTRANE_(?:OK|ERR_[A-Z_]+)) =\\s+(-?[0-9]+)");
  int count = 0;
  for (std::sregex_iterator at(header.begin(), header.end(), status), end; at != end; ++at) {
    ++count;
    EXPECT_THAT(guide, HasSubstr("| " + (*at)[2].str() + " | `" + (*at)[1].str() + "` | "));
  }
  EXPECT_EQ(count, 12);
}

// All texts but the licence, by their path.
std::vector<std::string> texts() {
  std::vector<std::string> paths;
  for (const char* folder : {"", "docs/", "bench/"}) {
    for (const auto& entry : std::filesystem::directory_iterator(kFolder + folder)) {
      if (entry.path().extension() == ".md")
        paths.push_back(folder + entry.path().filename().string());
    }
  }
  return paths;
}

// What the first group of `pattern` takes out of a text.
std::vector<std::string> found_in(const std::string& text, const std::regex& pattern) {
  std::vector<std::string> found;
  for (std::sregex_iterator at(text.begin(), text.end(), pattern), end; at != end; ++at) {
    found.push_back((*at)[1].str());
  }
  return found;
}

TEST(Texts, LeadToFilesThatAreThere) {
  const std::regex link("\\]\\(([^):#]+)[^):]*\\)");
  int links = 0;
  for (const std::string& text : texts()) {
    const std::filesystem::path from = std::filesystem::path(kFolder + text).parent_path();
    for (const std::string& target : found_in(text_of_file(text), link)) {
      ++links;
      EXPECT_TRUE(std::filesystem::exists(from / target)) << text << " leads to " << target;
    }
  }
  EXPECT_GT(links, 5);
}

// A source and its header may be named together, without their endings.
TEST(Texts, NameSourcesThatAreThere) {
  const std::regex path(
      "`((?:include|src|simulation|examples|tests|bench|fuzz|cmake|scripts|docs)/[\\w./-]+)`");
  int names = 0;
  for (const std::string& text : texts()) {
    for (const std::string& name : found_in(text_of_file(text), path)) {
      ++names;
      EXPECT_TRUE(std::filesystem::exists(kFolder + name) ||
                  std::filesystem::exists(kFolder + name + ".h") ||
                  std::filesystem::exists(kFolder + name + ".cpp"))
          << text << " names " << name;
    }
  }
  EXPECT_GT(names, 50);
}

// The reference's own check passes over enumerators.
TEST(PublicHeaders, GiveEveryEnumeratorAComment) {
  bool inside = false;
  int count = 0;
  for (const std::string& line : lines_of_file("include/kestrane/records.h")) {
    if (line == "};") inside = false;
    if (inside) {
      ++count;
      EXPECT_THAT(line, HasSubstr("///< "));
    }
    inside = inside || line.rfind("enum ", 0) == 0;
  }
  EXPECT_EQ(count, 16);
}

TEST(Changelog, BeginsWithTheVersionOfTheProject) {
  const std::string build = text_of_file("CMakeLists.txt");
  std::smatch version;
  ASSERT_TRUE(std::regex_search(build, version, std::regex("project\\(kestrane VERSION (\\S+)")));
  std::smatch newest;
  const std::string changes = text_of_file("CHANGELOG.md");
  ASSERT_TRUE(std::regex_search(changes, newest, std::regex("\n## ([0-9.]+) - ")));
  EXPECT_EQ(newest[1].str(), version[1].str());
}

}  // namespace
