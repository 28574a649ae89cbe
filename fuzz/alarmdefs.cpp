// The definition list: whatever the bytes, the interpreter takes what it can and the check says why not, without a
// crash; what the check finds in order is looked up whole.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include "ixocamglue/alarms/Almintprt.h"
#include "ixocamglue/alarms/Ualarmdefs.h"
#include "ixocamglue/platform/ports/Alarmintf.h"

namespace {

class TDefinitions final : public ixocamglue::IAlarmInterpreterSvc {
 public:
  std::string GetAlarmDefinitions() override { return Json; }
  std::string Json;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace ixocamglue;
  TAppSys app;
  const TInstalled<TAppSys> installed(app);
  const auto definitions = std::make_shared<TDefinitions>();
  definitions->Json.assign(reinterpret_cast<const char*>(data), size);
  app.Register(IID_IAlarmInterpreterSvc, definitions);
  const TAlarmInterpreter interpreter;
  if (CheckAlarmDefinitions(definitions->Json).empty() && definitions->Json.find("HelpID") != std::string::npos &&
      interpreter.Count() == 0 && definitions->Json.find_first_not_of(" \t\r\n[]\xEF\xBB\xBF") == std::string::npos)
    std::abort();
  TAlarmRec rec;
  TNcAlarmMsg msg;
  msg.Texts = TNcAlarmTexts(definitions->Json.substr(0, 16), "desc");
  const bool known = interpreter.TryGetAlarmRec(msg, rec);
  if (!known && (rec.Code != msg.Id() || rec.AlarmDesc != "desc")) std::abort();
  if (known && rec.HelpID != msg.Id()) std::abort();
  return 0;
}
