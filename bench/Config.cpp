// The machine file: loading it into the records, saving it without and with a change, and making the records, beside
// pugixml alone, pugixml with a scan without regard to case for the same values, and the bare steps of a durable save.
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <strings.h>
#include <unistd.h>

#include <pugixml.hpp>

#include "bench/Rows.h"
#include "controller/process/StateFolder.h"
#include "ixocamglue/config/Uassistconfig.h"
#include "ixocamglue/platform/xml/MachineConfig.h"
#include "ixocamglue/support/Files.h"

namespace ixocamglue::bench {
using namespace ixocontroller;
namespace {

namespace fs = std::filesystem;

void Check(bool done) {
  if (!done) std::abort();  // nothing was measured
}

// A copy of the example in a folder of its own.
class TCopy {
 public:
  TCopy() { fs::copy_file(ShareFolder() / "machines/machine.xml", File()); }
  [[nodiscard]] fs::path File() const { return FFolder.Path() / "machine.xml"; }

 private:
  TTempFolder FFolder{"ixo-bench"};
};

class TRecords {
 public:
  TRecords() {
    InitCamConfigs(Config);
    Check(Config.Load(Copy.File()).Ok());
  }
  ~TRecords() { FreeAssistConfig(); }
  TRecords(const TRecords&) = delete;
  TRecords& operator=(const TRecords&) = delete;

 protected:
  TCopy Copy;
  TMachineConfig Config;
};

class TLoadRecords : TRecords {
 public:
  void Run() { Check(Config.Load(Copy.File()).Ok()); }
};

class TSaveUnchanged : TRecords {
 public:
  void Run() { Check(Config.Save().Ok()); }
};

class TSaveChanged : TRecords {
 public:
  TSaveChanged() { Check(Config.Save().Ok()); }
  void Run() {
    ++FNozzleCleanCfg->CleanCount;
    Check(Config.Save().Ok());
  }
};

class TMakeRecords {
 public:
  void Run() {
    TMachineConfig config;
    InitCamConfigs(config);
  }
  ~TMakeRecords() { FreeAssistConfig(); }
};

class TPugiParse {
 public:
  void Run() {
    pugi::xml_document document;
    Check(document.load_file(Copy.File().c_str(), pugi::parse_full | pugi::parse_ws_pcdata));
  }

 private:
  TCopy Copy;
};

// A machine file of 100,000 sections that nobody knows, `bytes` long.
class TForeignSections {
 public:
  explicit TForeignSections(std::size_t bytes) {
    constexpr int kSections = 100'000;
    std::string text = ReadFile(Copy.File()).OrThrow(pbUnusable);
    const auto end = text.rfind("</");
    const std::string tail = text.substr(end);
    text.resize(end);
    const std::string filling(bytes / kSections > 30 ? bytes / kSections - 30 : 0, 'x');
    for (int i = 0; i < kSections; ++i) {
      const std::string name = "Own" + std::to_string(i);
      text += '<' + name + " a='1'>" + filling + "</" + name + ">\n";
    }
    std::ofstream(Copy.File(), std::ios::binary) << text << tail;
  }

 protected:
  TCopy Copy;
};

class TLoadForeign : TForeignSections {
 public:
  explicit TLoadForeign(std::size_t bytes = 4'000'000) : TForeignSections(bytes) {}
  void Run() {
    TMachineConfig config;
    InitCamConfigs(config);
    Check(config.Load(Copy.File()).Ok());
  }
  ~TLoadForeign() { FreeAssistConfig(); }
};

class TLoad62MiB : public TLoadForeign {
 public:
  TLoad62MiB() : TLoadForeign(std::size_t{62} * 1024 * 1024) {}
};

class TSaveForeign : TForeignSections {
 public:
  TSaveForeign() : TForeignSections(4'000'000) {
    InitCamConfigs(FConfig);
    Check(FConfig.Load(Copy.File()).Ok());
  }
  ~TSaveForeign() { FreeAssistConfig(); }
  void Run() {
    ++FNozzleCleanCfg->CleanCount;
    Check(FConfig.Save().Ok());
  }

 private:
  TMachineConfig FConfig;
};

// Finds each property of the records as anybody would write it: every name compared, an exact one first.
class TScanPublisher final : public TFieldPublisher<TScanPublisher> {
 public:
  explicit TScanPublisher(pugi::xml_node node) : FNode(node) {}

  static void Visit(TXmlSubConfig& record, pugi::xml_node node) {
    TScanPublisher scan(node);
    record.Publish(scan);
    for (const auto& [name, sub] : record.SubConfigs()) Visit(*sub, Child(node, std::string(name).c_str()));
  }

  template <class T, class D>
  void Value(TPropName name, T& value, const D&, const TFieldRule&) {
    const char* const text = Find(name.Text.data());
    if (!text) return;
    if constexpr (std::is_same_v<T, std::string>)
      value = text;
    else if constexpr (std::is_same_v<T, bool>)
      value = strcasecmp(text, "true") == 0 || std::strtol(text, nullptr, 10) != 0;
    else if constexpr (std::is_same_v<T, long double>)
      value = std::strtold(text, nullptr);
    else if constexpr (std::is_same_v<T, double>)
      value = std::strtod(text, nullptr);
    else
      value = static_cast<T>(std::strtol(text, nullptr, 10));
  }
  void Child(TPropName name, TXmlSubConfig& child) override { Visit(child, Child(FNode, name.Text.data())); }
  void List(TPropName itemName, TXmlListBase& list) override {
    for (const auto& child : FNode.children())
      if (strcasecmp(child.name(), itemName.Text.data()) == 0) Visit(*list.MakeItem(), child);
  }

 private:
  static pugi::xml_node Child(pugi::xml_node node, const char* name) {
    if (const auto exact = node.child(name)) return exact;
    for (const auto& child : node.children())
      if (strcasecmp(child.name(), name) == 0) return child;
    return {};
  }
  const char* Find(const char* name) const {
    if (const auto exact = FNode.attribute(name)) return exact.value();
    for (const auto& attribute : FNode.attributes())
      if (strcasecmp(attribute.name(), name) == 0) return attribute.value();
    const auto child = Child(FNode, name);
    return child ? child.child_value() : nullptr;
  }

  pugi::xml_node FNode;
};

class TPugiScan : TRecords {
 public:
  void Run() {
    pugi::xml_document document;
    Check(document.load_file(Copy.File().c_str(), pugi::parse_full | pugi::parse_ws_pcdata));
    TScanPublisher::Visit(Config, document.document_element());
  }
};

// The same steps without anything around them.
class TBareSave {
 public:
  void Run() {
    const std::string file = FCopy.File().string();
    const std::string temporary = file + ".tmp";
    const std::string backup = file + ".bak";
    pugi::xml_document document;
    Check(document.load_file(file.c_str(), pugi::parse_full | pugi::parse_ws_pcdata));
    struct TText final : pugi::xml_writer {
      void write(const void* data, std::size_t size) override { Bytes.append(static_cast<const char*>(data), size); }
      std::string Bytes;
    } text;
    document.save(text, "", pugi::format_raw | pugi::format_no_declaration);
    const int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0644);
    Check(::write(fd, text.Bytes.data(), text.Bytes.size()) == static_cast<::ssize_t>(text.Bytes.size()));
    Check(::fsync(fd) == 0);
    ::close(fd);
    ::unlink(backup.c_str());
    Check(::link(file.c_str(), backup.c_str()) == 0);
    Check(std::rename(temporary.c_str(), file.c_str()) == 0);
    const int folder = ::open(FCopy.File().parent_path().c_str(), O_RDONLY | O_DIRECTORY);
    Check(::fsync(folder) == 0);
    ::close(folder);
  }

 private:
  TCopy FCopy;
};

}  // namespace

std::vector<TRow> ConfigRows() {
  return {
      Measure<TLoadRecords>({.Id = "config_load",
                             .Name = "machine file, load",
                             .Peer = "pugi_scan",
                             .PeerName = "pugixml + scan",
                             .MaxRatio = 0.8}),
      Measure<TPugiScan>({.Id = "pugi_scan"}),
      Measure<TPugiParse>({.Id = "pugi_parse", .Name = "machine file, pugixml alone"}),
      Measure<TSaveUnchanged>({.Id = "config_same",
                               .Name = "machine file, save unchanged",
                               .Peer = "pugi_scan",
                               .PeerName = "pugixml + scan",
                               .MaxRatio = 0.6}),
      Measure<TSaveChanged>({.Id = "config_save",
                             .Name = "machine file, durable save",
                             .Peer = "bare_save",
                             .PeerName = "the bare steps",
                             .MaxRatio = 1.25}),
      Measure<TBareSave>({.Id = "bare_save"}),
      Measure<TLoadForeign>({.Id = "config_load_foreign", .Name = "100,000 unknown sections, load", .Parts = 100'000}),
      Measure<TSaveForeign>({.Id = "config_save_foreign", .Name = "100,000 unknown sections, save", .Parts = 100'000}),
      Measure<TLoad62MiB>({.Id = "config_load_62", .Name = "machine file of 62 MiB, load"}),
      Measure<TMakeRecords>({.Id = "config_make", .Name = "assist records, made"}),
  };
}

}  // namespace ixocamglue::bench
