// What was tried of a machine, by whom, and what came of it: a line a try in a file, written as soon as it is known;
// columns are parted by tabs. One thread. Nothing fails but the file.
#pragma once

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "controller/commissioning/PortTries.h"

namespace ixocontroller {

struct TTried : TTriedPort {
  std::string Time, Port;
};

class TTryProtocol {
 public:
  // Throws EProblem for a file that is there already (pbRequest, told of `where`), and for one that cannot be written.
  TTryProtocol(std::filesystem::path file, const std::string& machine, const char* where);

  // Tries the port and writes it down. Throws EProblem where the file cannot be written any more.
  const TTried& Try(const TPortTry& port);
  [[nodiscard]] const std::vector<TTried>& All() const { return FTried; }
  [[nodiscard]] std::size_t Bad() const;  // tries
  [[nodiscard]] nlohmann::ordered_json Json() const;
  [[nodiscard]] const std::filesystem::path& File() const { return FFile; }
  // "machine-try-2026-01-31T14-00-00.000Z.tsv", of now.
  [[nodiscard]] static std::string NewName();

 private:
  void Check();

  const std::filesystem::path FFile;
  const std::string FWho;
  std::ofstream FOut;
  std::vector<TTried> FTried;
};

}  // namespace ixocontroller
