// A list of alarm messages that finds the first of an identifier without walking: what an event costs does not grow
// with what is active or past. Not synchronised.
#pragma once

#include <cstddef>
#include <list>
#include <string_view>
#include <unordered_map>

#include "platform/NcAlarmManager.h"
#include "platform/Uqxncalarmsmanager.h"

namespace ixocamglue {

class TAlarmList {
 public:
  TAlarmList() = default;
  TAlarmList(const TAlarmList&) = delete;
  TAlarmList& operator=(const TAlarmList&) = delete;

  void InsertHead(const TNcAlarmMsg& msg) {
    TChain& chain = FChains[msg.Texts];
    FNodes.push_front({msg, chain.First});
    chain.First = &FNodes.front();
    chain.First->Self = FNodes.begin();
    if (!chain.Last) chain.Last = chain.First;
  }
  void Append(const TNcAlarmMsg& msg) {
    TChain& chain = FChains[msg.Texts];
    FNodes.push_back({msg, nullptr});
    TNode* const node = &FNodes.back();
    node->Self = std::prev(FNodes.end());
    (chain.Last ? chain.Last->Next : chain.First) = node;
    chain.Last = node;
  }
  // Deletes the message of this identifier that is nearest to the head; false when there is none.
  bool DeleteFirst(std::string_view id) {
    const auto found = FChains.find(id);
    if (found == FChains.end() || !found->second.First) return false;
    TChain& chain = found->second;
    TNode* const node = chain.First;
    chain.First = node->Next;
    if (!chain.First) chain.Last = nullptr;  // the chain stays: an identifier that came once comes again
    FNodes.erase(node->Self);
    return true;
  }
  [[nodiscard]] bool Contains(std::string_view id) const {
    const auto found = FChains.find(id);
    return found != FChains.end() && found->second.First;
  }
  [[nodiscard]] std::size_t Size() const { return FNodes.size(); }

  // From the head on.
  template <class F>
  void ForEach(F call) const {
    for (const TNode& node : FNodes) call(node.Msg);
  }

 private:
  struct TNode {
    TNcAlarmMsg Msg;
    TNode* Next;  // of the same identifier, away from the head
    std::list<TNode>::iterator Self{};
  };
  struct TChain {
    TNode* First = nullptr;
    TNode* Last = nullptr;
  };
  struct TIdHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view id) const { return std::hash<std::string_view>{}(id); }
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

  std::list<TNode> FNodes;
  std::unordered_map<TNcAlarmTexts, TChain, TIdHash, TIdEqual> FChains;
};

}  // namespace ixocamglue
