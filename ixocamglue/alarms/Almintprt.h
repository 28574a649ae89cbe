// The alarm interpreter: an alarm's code, module, type, description, reason and solution by its identifier.
//
// Filled from three sources, a later one replacing what an earlier one says of the same identifier: the application's
// definition list, the user-defined alarms and the multi-bit groups of the machine configuration. Any thread looks up;
// a rebuild is made aside and swapped in, so a lookup sees the old texts or the new ones. Inside a TLanguageScope a
// lookup answers in its language, as far as the application has definitions in it.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "ixocamglue/platform/alarms/AlarmsConfig.h"
#include "ixocamglue/platform/alarms/Uqxncalarmsmanager.h"
#include "ixocamglue/support/Locks.h"
#include "ixocamglue/support/TextHash.h"

namespace ixocamglue {

inline constexpr const char* SNoAlarmInterpreterSvc =
    "Appsys Cannot support IAlarmInterpreterSvc, Fail in doing InitAlarmDict";

// UTF-8; the names are those of the definition list, as spelled there.
struct TAlarmRec {
  std::string HelpID;
  std::string BrifDesc;
  std::string Code;
  std::string Category;
  std::string Alarmtype;
  std::string AlarmDesc;
  std::string Reason;
  std::string Solution;

  friend bool operator==(const TAlarmRec&, const TAlarmRec&) = default;
};

// A lookup does not fail: of an identifier without a record it gives what the message says.
class TAlarmInterpreter {
 public:
  // Builds the dictionary; throws what InitAlarmDict throws.
  TAlarmInterpreter() { InitAlarmDict(); }
  virtual ~TAlarmInterpreter() = default;
  TAlarmInterpreter(const TAlarmInterpreter&) = delete;
  TAlarmInterpreter& operator=(const TAlarmInterpreter&) = delete;

  // Rebuilds the dictionary. Throws std::runtime_error, the dictionary unchanged, while the application offers no
  // definition list; a list that is no JSON array leaves the dictionary empty.
  void InitAlarmDict();

  // The record of the identifier; false and an empty record when there is none.
  [[nodiscard]] bool TryGetAlarmRec(std::string_view id, TAlarmRec& rec) const;
  // The same, and where there is none a record made from the message; the result tells whether the dictionary has it.
  bool TryGetAlarmRec(const TNcAlarmMsg& msg, TAlarmRec& rec) const;
  [[nodiscard]] std::string GetAlarmCode(const TNcAlarmMsg& msg) const;
  [[nodiscard]] std::string GetAlarmModule(const TNcAlarmMsg& msg) const;
  [[nodiscard]] std::string GetAlarmType(const TNcAlarmMsg& msg) const;
  [[nodiscard]] std::string GetAlarmReason(const TNcAlarmMsg& msg) const;
  [[nodiscard]] std::string GetAlarmSolution(const TNcAlarmMsg& msg) const;
  // Kept: the message's own description, whatever the dictionary says.
  [[nodiscard]] std::string GetAlarmDesc(const TNcAlarmMsg& msg) const;

  // Called for every message whose identifier is not in the dictionary.
  virtual void AddMsgToDBTable(const TNcAlarmMsg&) const {}

  [[nodiscard]] std::size_t Count() const { return Dict()->size(); }
  [[nodiscard]] std::vector<std::string> Identifiers() const;  // sorted

 private:
  using TDict = std::unordered_map<std::string, TAlarmRec, TTextHash, std::equal_to<>>;

  // False: the list is no JSON array, and nothing else is to be added.
  static bool AddDefinitions(TDict& dict, std::string_view json);
  static void InitUserDefinedAlarm(TDict& dict, const TAlarmsConfig& config);
  static void InitMulityAlarm(TDict& dict, const TAlarmsConfig& config, std::size_t group);
  [[nodiscard]] std::shared_ptr<const TDict> Dict() const;
  // Of the thread's language.
  [[nodiscard]] std::shared_ptr<const TDict> ThreadDict() const;
  // What the language's definitions say, over what the application's own say.
  [[nodiscard]] static std::shared_ptr<const TDict> Translate(const TDict& own, std::string_view language);

  mutable TCriticalSection FLock;
  mutable std::map<std::string, std::shared_ptr<const TDict>, std::less<>> FOthers IXO_GUARDED_BY(FLock);
  std::shared_ptr<const TDict> FDict IXO_GUARDED_BY(FLock) = std::make_shared<TDict>();
};

// The one instance. The first call creates it and lets a change of language rebuild it; throws, with nothing stored,
// while it cannot be created. Null before the library's start and after its end.
TAlarmInterpreter* AlarmInterpreter();

// The unit's life; see library/Library.h. The start creates the interpreter, logging why where it cannot.
void StartAlarmInterpreter();
// Does not fail.
void FreeAlarmInterpreter();

}  // namespace ixocamglue
