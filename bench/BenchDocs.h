// The documents every library is measured on: the .json files of a corpus
// directory, read at run time, and synthetic documents made here so that the
// benchmark also runs where no corpus is at hand.
#pragma once

#include <string>
#include <vector>

struct BenchDoc {
  std::string name;     // file stem or synthetic kind; one segment of every benchmark name
  std::string source;   // how to build it again in another process: a path or "synthetic:<kind>"
  std::string text;     // the JSON text
  std::string msgpack;  // the same document as our writer encodes it; every MessagePack reader
                        // reads these bytes
};

// Kinds of synthetic document, in the order they are reported.
const std::vector<std::string>& SyntheticKinds();

// The JSON text of one synthetic kind (about a megabyte, the same bytes on
// every run and machine). Empty for an unknown kind.
std::string SynthesizeDocument(const std::string& kind);

// Every *.json file of `dir`, sorted by name. Sets `error` when the
// directory cannot be read.
std::vector<BenchDoc> LoadCorpus(const std::string& dir, std::string& error);

// The synthetic documents, one per kind.
std::vector<BenchDoc> SyntheticDocuments();

// Rebuilds the text named by a BenchDoc::source. False when it cannot.
bool LoadSource(const std::string& source, std::string& text);
