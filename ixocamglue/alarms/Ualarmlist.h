// Lists of alarm messages that find the first of an identifier without walking: what an event costs does not grow with
// what is active or past. Several lists share one index, so that a message that leaves one for another is looked up
// once. Not synchronised. Nothing fails: an identifier that is not there is passed over; a list is named by its number
// below `Lists`, which nobody checks. One thread at a time.
#pragma once

#include <array>
#include <cstddef>
#include <list>
#include <string_view>
#include <unordered_map>

#include "ixocamglue/platform/alarms/Uqxncalarmsmanager.h"
#include "ixocamglue/support/TextHash.h"

namespace ixocamglue {

template <std::size_t Lists>
class TAlarmLists {
 public:
  TAlarmLists() = default;
  TAlarmLists(const TAlarmLists&) = delete;
  TAlarmLists& operator=(const TAlarmLists&) = delete;

  // Deletes the first message of the identifier from one list and puts the message at the head of another.
  void Move(std::size_t from, std::size_t to, const TNcAlarmMsg& msg) {
    TChains& chains = FChains[msg.Texts];
    Delete(from, chains[from]);
    TChain& chain = chains[to];
    FNodes[to].push_front({msg, chain.First});
    chain.First = &FNodes[to].front();
    chain.First->Self = FNodes[to].begin();
    if (!chain.Last) chain.Last = chain.First;
  }
  void Append(std::size_t list, const TNcAlarmMsg& msg) {
    TChain& chain = FChains[msg.Texts][list];
    FNodes[list].push_back({msg, nullptr});
    TNode* const node = &FNodes[list].back();
    node->Self = std::prev(FNodes[list].end());
    (chain.Last ? chain.Last->Next : chain.First) = node;
    chain.Last = node;
  }
  // Deletes the message of this identifier that is nearest to the head.
  void DeleteFirst(std::size_t list, std::string_view id) {
    const auto found = FChains.find(id);
    if (found != FChains.end()) Delete(list, found->second[list]);
  }
  [[nodiscard]] bool Contains(std::size_t list, std::string_view id) const {
    const auto found = FChains.find(id);
    return found != FChains.end() && found->second[list].First;
  }

  // From the head on.
  template <class F>
  void ForEach(std::size_t list, F call) const {
    for (const TNode& node : FNodes[list]) call(node.Msg);
  }

 private:
  struct TNode {
    TNcAlarmMsg Msg;
    TNode* Next;  // of the same identifier, away from the head
    typename std::list<TNode>::iterator Self{};
  };
  struct TChain {
    TNode* First = nullptr;
    TNode* Last = nullptr;
  };
  struct TIdHash : TTextHash {
    using TTextHash::operator();
    std::size_t operator()(const TNcAlarmTexts& texts) const { return (*this)(texts.Id()); }
  };
  struct TIdEqual {
    using is_transparent = void;
    static std::string_view Id(std::string_view id) { return id; }
    static std::string_view Id(const TNcAlarmTexts& texts) { return texts.Id(); }
    template <class A, class B>
    bool operator()(const A& a, const B& b) const {
      return Id(a) == Id(b);
    }
  };

  using TChains = std::array<TChain, Lists>;

  // The chains stay when they are empty: an identifier that came once comes again.
  void Delete(std::size_t list, TChain& chain) {
    TNode* const node = chain.First;
    if (!node) return;
    chain.First = node->Next;
    if (!chain.First) chain.Last = nullptr;
    FNodes[list].erase(node->Self);
  }

  std::array<std::list<TNode>, Lists> FNodes;
  std::unordered_map<TNcAlarmTexts, TChains, TIdHash, TIdEqual> FChains;
};

}  // namespace ixocamglue
