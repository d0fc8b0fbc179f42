// The cross-check decides which libraries are timed on which document, so it
// must tell the same document from a different one: too lenient and a peer
// that dropped content is timed on less work, too strict and a fair peer is
// thrown out.
#include <gtest/gtest.h>

#include "BenchLibraries.h"

namespace {

struct Case {
  const char* name;
  const char* text;
  const char* actual;
  bool same;
};

TEST(CrossCheck, TellsSameDocumentsFromDifferentOnes) {
  const Case cases[] = {
      {"identical", R"({"a":[1,2.5,"x"],"b":null})", R"({"a":[1,2.5,"x"],"b":null})", true},
      {"member order", R"({"a":1,"b":2})", R"({"b":2,"a":1})", true},
      {"spacing and escapes", R"({"s":"\u00e9\/"})", "{ \"s\" : \"\xC3\xA9/\" }", true},
      {"integral real as integer", R"([33.0,-2.0])", R"([33,-2])", true},
      {"same real, other text", R"([1.50,1e2])", R"([1.5,100.0])", true},
      {"other number", R"([33])", R"([34])", false},
      {"integer for a real with a fraction", R"([1.5])", R"([1])", false},
      {"number for a string", R"(["1"])", R"([1])", false},
      {"missing member", R"({"a":1,"b":2})", R"({"a":1})", false},
      {"renamed member", R"({"a":1})", R"({"c":1})", false},
      {"extra element", R"([1,2])", R"([1,2,3])", false},
      {"array order", R"([1,2])", R"([2,1])", false},
      {"truncated string", R"(["abcdef"])", R"(["abc"])", false},
      {"true for 1", R"([true])", R"([1])", false},
      {"deep difference", R"([[[{"k":[null]}]]])", R"([[[{"k":[false]}]]])", false},
      {"unreadable output", R"([1])", R"([1)", false},
      {"library failed", R"([1])", "", false},
  };
  for (const Case& c : cases) {
    std::string why;
    EXPECT_EQ(OurDocumentsEqual(c.text, c.actual, false, why), c.same) << c.name;
    EXPECT_EQ(why.empty(), c.same) << c.name << ": " << why;
  }
}

TEST(CrossCheck, ReadsMessagePackOutput) {
  std::string error;
  const std::string text = R"({"a":[1,2.5,"x",true],"b":{"c":null}})";
  std::string bytes = OurMsgPack(text, error);
  ASSERT_FALSE(bytes.empty()) << error;
  std::string why;
  EXPECT_TRUE(OurDocumentsEqual(text, bytes, true, why)) << why;
  EXPECT_FALSE(OurDocumentsEqual(R"({"a":[1]})", bytes, true, why));
  bytes.pop_back();  // cut inside the last member
  EXPECT_FALSE(OurDocumentsEqual(text, bytes, true, why));
}

TEST(CrossCheck, SyntheticDocumentsAreSoundInputs) {
  for (const BenchDoc& doc : SyntheticDocuments()) {
    // Big enough to measure MB/s on, and readable by our parser.
    EXPECT_GE(doc.text.size(), size_t{1} << 20) << doc.name;
    std::string why;
    EXPECT_TRUE(OurDocumentsEqual(doc.text, doc.text, false, why)) << doc.name << ": " << why;
    // The same bytes every time, or runs would not compare.
    EXPECT_EQ(SynthesizeDocument(doc.name), doc.text) << doc.name;
  }
}

}  // namespace
