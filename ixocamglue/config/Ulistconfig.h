// Assist records that are lists: calibration results, health reminders, mark points, coordinate origins. Indices
// count from 0; one outside gives null or false and changes nothing. No locks. Nothing else here fails.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "ixocamglue/platform/ports/MotionDriver.h"
#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/platform/xml/XmlSubConfig.h"

namespace ixocamglue {

// One result of a float calibration.
class TCaliRst : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  // Stored as "YYYY-MM-DD hh:mm:ss.zzz"; a plain number of days is read too. Not set when the text is neither.
  [[nodiscard]] TDateTime GetTime() const;
  void SetTime(TDateTime time);

  double Cap = 0.0;
  std::int32_t SteadyLv = 0;
  std::int32_t SmoothLv = 0;
  double CaliCapRange = 0.0;
  std::int32_t ErrorType = 0;

 private:
  std::string FTime;
};

// "CaliResults", "CaliResults2": the last MaxCnt results, the oldest first.
class TCaliRstCfg : public TXmlSubConfig {
 public:
  static constexpr std::int32_t kMaxMaxCnt = 1000;

  void Publish(TPublisher& p) override;
  void LoadFromXmlNode(TXmlNode node) override;

  std::int32_t Add(const TCaliRst& result);  // at the limit the oldest goes; returns the index
  void Clear() { FItems.Clear(); }
  [[nodiscard]] std::int32_t Count() const { return FItems.Count(); }
  bool Delete(std::int32_t index) { return FItems.Delete(index); }
  [[nodiscard]] TCaliRst* GetItem(std::int32_t index) const { return FItems.Get(index); }
  bool SetItem(std::int32_t index, const TCaliRst& result) { return FItems.Set(index, result); }
  [[nodiscard]] std::int32_t GetMaxCnt() const { return FMaxCnt; }
  bool SetMaxCnt(std::int32_t count);  // 1..1000; drops the oldest at once

 private:
  std::int32_t FMaxCnt = 0;
  TXmlList<TCaliRst> FItems;
};

// A maintenance reminder.
class THealthItem : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  std::string Desc;
  std::string Key;
  std::int32_t AddMode = 0;
  double PromptTime = 0.0;
  double Countdown = 0.0;
  double WarningTime = 0.0;
  std::int32_t TimeMode = 0;
  std::int32_t PromptType = 0;
  bool AllowIgnore = false;
  std::int32_t OpreLevel = 0;
};

// "Healths"
class THealthConfig : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  std::int32_t Add(const THealthItem& item) { return FItems.Add(item); }
  void Clear() { FItems.Clear(); }
  bool Delete(std::int32_t index) { return FItems.Delete(index); }
  [[nodiscard]] std::int32_t GetCount() const { return FItems.Count(); }
  [[nodiscard]] THealthItem* GetItem(std::int32_t index) const { return FItems.Get(index); }
  bool SetItem(std::int32_t index, const THealthItem& item) { return FItems.Set(index, item); }

 private:
  TXmlList<THealthItem> FItems;
};

// A flag position of the cutting driver that the program itself defines.
struct TFlagItem {
  void Init(std::int32_t index, std::string_view name) { *this = {index, name}; }
  [[nodiscard]] std::string ShowName() const;  // "104 下料位"

  std::int32_t FlagIndex = 0;
  std::string_view Name;
};

inline constexpr std::int32_t kBlankingFlag = 104;
// Null when the program defines no such flag.
[[nodiscard]] const TFlagItem* FindFlag(std::int32_t flagIndex);

class TMarkPoint : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  // From the program's table of flags, never from the file.
  [[nodiscard]] std::string SystemDesc() const;

  std::int32_t FlagIndex = 0;
  std::string CustomDesc;
  bool Enabled = false;
  bool IsSystemDefine = false;
};

// "MarkPoints"; the stored Count is written for others and never read.
class TMarkPointsConfig : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  std::int32_t Add(const TMarkPoint& item) { return FItems.Add(item); }
  void Clear() { FItems.Clear(); }
  bool Delete(std::int32_t index) { return FItems.Delete(index); }
  [[nodiscard]] std::int32_t GetCount() const { return FItems.Count(); }
  [[nodiscard]] TMarkPoint* GetItem(std::int32_t index) const { return FItems.Get(index); }
  bool SetItem(std::int32_t index, const TMarkPoint& item) { return FItems.Set(index, item); }

 private:
  TXmlList<TMarkPoint> FItems;
};

// "UCSOrgName": the user's coordinate origins and their names.
class TUCSOrgConfig : public TXmlSubConfig {
 public:
  static constexpr std::int32_t kMaxUCSNum = 1000;

  void Publish(TPublisher& p) override;
  [[nodiscard]] std::int32_t GetUCSNum() const { return FUCSNum; }
  bool SetUCSNum(std::int32_t count);  // 0..1000; drops the names of the origins above
  [[nodiscard]] std::int32_t GetLastUCSOrg() const { return FLastUCSOrg; }
  void SetLastUCSOrg(std::int32_t index) { FLastUCSOrg = index; }     // any number
  [[nodiscard]] std::string GetUCSOrgName(std::int32_t index) const;  // empty when it has none
  bool SetUcsOrgName(std::int32_t index, std::string_view name);      // false for a negative index

 private:
  std::int32_t FUCSNum = 0;
  std::int32_t FLastUCSOrg = 0;
  std::map<std::int32_t, std::string> FNames;
};

}  // namespace ixocamglue
