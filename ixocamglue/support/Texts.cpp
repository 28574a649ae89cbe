#include "ixocamglue/support/Texts.h"

namespace ixocamglue {
namespace {

constinit std::atomic<const TMessages*> GMessages{nullptr};
constinit std::atomic<ICatalogues*> GCatalogues{nullptr};

}  // namespace

constinit thread_local const TCatalogue* GThreadCatalogue = nullptr;

const std::string* TCatalogue::Find(const TText& text) const {
  const auto found = Texts.find(std::string(text.Section) + "/" + text.Key);
  return found == Texts.end() ? nullptr : &found->second;
}

const char* TCatalogue::Of(const TText& text) const {
  const std::string* const found = Find(text);
  return found && SameConversions(found->c_str(), text.Default) ? found->c_str() : text.Default;
}

const char* Tr(const char* english) {
  const TCatalogue* const own = GThreadCatalogue;
  const TMessages* const messages = own ? &own->Messages : GMessages.load(std::memory_order_acquire);
  if (!messages) return english;
  const auto found = messages->find(std::string_view(english));
  return found == messages->end() ? english : found->second.c_str();
}

const TMessages* UseMessages(const TMessages* messages) {
  return GMessages.exchange(messages, std::memory_order_acq_rel);
}

void UseCatalogues(ICatalogues* catalogues) { GCatalogues.store(catalogues, std::memory_order_release); }

TLanguageScope::TLanguageScope(std::string_view language) {
  ICatalogues* const catalogues = GCatalogues.load(std::memory_order_acquire);
  GThreadCatalogue = catalogues ? catalogues->Catalogue(language) : nullptr;
}

}  // namespace ixocamglue
