// A journal with its samples and what the run was to be, as a text file: one line each, read and written alike. The
// words that a machine said stay in it, and no judge reads them; of a sample only what the judges look at is kept.
//
//   # a comment
//   expect success=1 light=60 light-most=110 gas=1 follow=1 outputs=1 state=204
//   00000100 state 204
//   00000100 start laser.SwitchLaser on -> refused        the kind: read, lock, stop, off, set, start
//   00000120 cause stop                                   or: hang 300, mended, ended
//   00000130 told laser: beam dark
//   00000130 sample light=1 x=12.5 outputs=4,5            what differs from the sample before
#pragma once

#include <iosfwd>
#include <string_view>
#include <vector>

#include "ixocamglue/support/Problem.h"
#include "verify/Oracle.h"

namespace ixoverify {

struct TJournalFile {
  TExpectations Expected;
  std::vector<TJournalEntry> Entries;
  std::vector<TJournalSample> Samples;
};

// What is wrong is told with its line.
[[nodiscard]] TResult<TJournalFile> ReadJournal(std::string_view text);
void WriteJournal(std::ostream& out, const TJournalFile& journal);

}  // namespace ixoverify
