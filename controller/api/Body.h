// The members of a request's body, which is an object; none counts as an empty one. Throws EProblem (pbRequest) for
// what is missing, of another kind, out of its range or not asked for. Any thread. Numbers are in the member's unit.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "controller/api/Api.h"

namespace ixocontroller {

class TAskedBody {
 public:
  TAskedBody(const TApiRequest& request, std::initializer_list<const char*> known);

  [[nodiscard]] bool Has(const char* name) const;
  [[nodiscard]] std::string Text(const char* name) const;  // not empty
  [[nodiscard]] double Number(const char* name, double least, double most) const;
  [[nodiscard]] std::int64_t Whole(const char* name, std::int64_t least, std::int64_t most) const;
  [[nodiscard]] bool Flag(const char* name, bool otherwise) const;  // `otherwise` where it is missing
  // A list of texts, or one text; empty where it is missing.
  [[nodiscard]] std::vector<std::string> Texts(const char* name) const;

 private:
  [[nodiscard]] const nlohmann::json& At(const char* name) const;

  const nlohmann::json& FBody;
};

}  // namespace ixocontroller
