// Ports: what the application offers around alarms, found in AppSys by identifier. Each may be absent; the library then
// skips the work, except where the interpreter says otherwise. Items and factories are the alarm client's thread's.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Clock.h"

namespace ixocamglue {

inline constexpr TGuid IID_IAlarmInterpreterSvc{"{6745A103-7E4F-4C6A-ADBA-E63785214847}"};
inline constexpr TGuid IID_IAlarmSvcIntf{"{0B7C6A52-5C0E-4C55-9E0B-6E1C55D1A7F4}"};
inline constexpr TGuid IID_IAlarmFactory{"{C2C9F3B8-1D57-4B0C-8F0E-3A6D1B9E4C21}"};

// The definitions of all alarms, as one JSON array of objects with the members "HelpID", "BrifDesc", "Code",
// "AlarmDesc", "Category", "Alarmtype", "Reason", "Solution"; UTF-8. Any thread; may throw.
class IAlarmInterpreterSvc : public IAppService {
 public:
  virtual std::string GetAlarmDefinitions() = 0;
  // The same in another language than the application's own; empty: there are none.
  virtual std::string GetAlarmDefinitionsIn(std::string_view /*language*/) { return {}; }
};

// One alarm on its way into the store. The setters are called in this order, SetFinal always with false. What an item
// or its factory throws is logged, and the message is lost to the store.
class IAlarmItem {
 public:
  virtual ~IAlarmItem() = default;
  virtual void SetAlarmId(std::string_view identifier) = 0;
  virtual void SetCode(std::string_view code) = 0;
  virtual void SetDesc(std::string_view desc) = 0;
  virtual void SetTime(TDateTime time) = 0;  // of the raise, or of the clear; UTC
  virtual void SetFinal(bool final) = 0;
  // An application's own item may leave these out; SetDefinition is called where the alarm has a definition.
  virtual void SetLevel(std::uint8_t) {}
  virtual void SetSerial(std::uint64_t) {}  // the alarm package's number of the raise, also with its clear
  virtual void SetDefinition(std::string_view /*module*/, std::string_view /*type*/, std::string_view /*reason*/,
                             std::string_view /*solution*/) {}
};

// Null, or what it throws: the message is lost to the store.
class IAlarmFactory : public IAppService {
 public:
  virtual std::shared_ptr<IAlarmItem> CreateAlarmItem() = 0;
};

// The application's alarm store. Called by the alarm client's thread, DeleteResidualAlarms by the thread that makes
// the manager. May throw: the message is then lost to the store, and the client goes on.
class IAlarmSvcIntf : public IAppService {
 public:
  virtual void AddAlarmItem(const std::shared_ptr<IAlarmItem>& item) = 0;
  virtual void RemoveAlarmItem(const std::shared_ptr<IAlarmItem>& item) = 0;
  virtual void DeleteResidualAlarms() = 0;  // what an earlier run left active
  // Makes what was added and removed durable. Called when a pass of the client has emptied its queue, and after every
  // 500 messages. A store that cannot write keeps what it was given and tries again when it is called later.
  virtual void Commit() {}
};

}  // namespace ixocamglue
