#include "controller/service/Sequences.h"

#include <algorithm>
#include <cerrno>

#include "ixocamglue/platform/xml/FileLayer.h"
#include "ixocamglue/support/Files.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/SystemError.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMostName = 64;
constexpr std::string_view kFileEnding = ".json";

bool MayBeInName(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_' || c == '.';
}

[[noreturn]] void Fail(const char* what, const fs::path& file, int error) {
  throw EProblem(pbUnusable, {.What = what, .Where = file.string(), .Why = SystemErrorText(error), .Remedy = {}});
}

}  // namespace

TResult<> TSequences::CheckName(std::string_view name) {
  if (!name.empty() && name.size() <= kMostName && name.front() != '.' && std::ranges::all_of(name, &MayBeInName))
    return {};
  return TProblem{.What = Format(Tr("\"%s\" is no name of a sequence"), std::string(name.substr(0, kMostName)).c_str()),
                  .Where = {},
                  .Why = {},
                  .Remedy = Tr("use at most 64 letters, digits, \"-\", \"_\" and \".\", no dot first")};
}

fs::path TSequences::FileOf(std::string_view name) const {
  CheckName(name).OrThrow(pbRequest);
  return FFolder / (std::string(name) + std::string(kFileEnding));
}

TResult<std::vector<TSequences::TFile>> TSequences::List() const {
  std::vector<TFile> files;
  std::error_code error;
  if (!fs::exists(FFolder, error)) return files;
  for (fs::directory_iterator at(FFolder, error), end; !error && at != end; at.increment(error)) {
    const std::string name = at->path().filename().string();
    std::error_code missing;
    if (!name.ends_with(kFileEnding) || !at->is_regular_file(missing)) continue;
    std::string stem = name.substr(0, name.size() - kFileEnding.size());
    if (!CheckName(stem)) continue;
    files.push_back({std::move(stem), at->file_size(missing)});
  }
  if (error)
    return TProblem{.What = Tr("the folder cannot be read"),
                    .Where = FFolder.string(),
                    .Why = SystemErrorText(error.value()),
                    .Remedy = {}};
  std::ranges::sort(files, {}, &TFile::Name);
  return files;
}

bool TSequences::Has(std::string_view name) const {
  std::error_code error;
  return fs::is_regular_file(FileOf(name), error);
}

std::string TSequences::Read(std::string_view name) const { return ReadFile(FileOf(name)).OrThrow(pbUnusable); }

bool TSequences::Put(std::string_view name, const std::string& text) const {
  const fs::path file = FileOf(name);
  const bool had = Has(name);
  MakeFolder(FFolder).OrThrow(pbUnusable);
  if (const TReplaced saved = ReplaceFile(file.string(), text, {}); !saved.Done)
    throw EProblem(
        pbUnusable,
        {.What = Tr("the file cannot be written"), .Where = file.string(), .Why = saved.Problem, .Remedy = {}});
  return had;
}

void TSequences::Remove(std::string_view name) const {
  const fs::path file = FileOf(name);
  if (const int error = Files().Remove(file.string())) Fail(Tr("the file cannot be removed"), file, error);
  (void)Files().FlushFolder(FFolder.string());  // it may come back after a power failure; nothing is lost by that
}

}  // namespace ixocontroller
