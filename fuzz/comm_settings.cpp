// Any text as a serial port's settings and as the address of a link.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "ixocamglue/platform/comm/SerialSettings.h"
#include "ixocut/link/LinkOptions.h"

using namespace ixocut;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  if (const auto settings = ParseSerialSettings(text)) {
    const bool known = std::string_view("noems").find(settings->Parity) != std::string_view::npos;
    if (!known || settings->Baud == 0 || settings->DataBits < 5 || settings->DataBits > 8) std::abort();
    if (settings->WireMs(256) < settings->WireMs(1)) std::abort();
  }
  for (const auto place : {&TLinkOptions::Tcp, &TLinkOptions::Serial}) {
    for (const char* const framing : {"", "rtu", "tcp"}) {
      TLinkOptions options;
      options.*place = text;
      options.Framing = framing;
      try {
        if (ParseLink(options).Text().empty()) std::abort();
      } catch (const EProblem& e) {
        if (*e.what() == '\0') std::abort();
      }
    }
  }
  return 0;
}
