// Making, building and freeing a tree of 100 nodes: a root, nine composites, ten leaves in each.
#include <stdexcept>
#include <vector>

#include "bench/Machine.h"
#include "bench/Rows.h"
#include "ixocamglue/motion/Umotiontexts.h"
#include "ixocamglue/motion/Ustatemotion.h"

namespace ixocamglue::bench {
namespace {

constexpr int kComposites = 9;
constexpr int kLeaves = 10;
constexpr int kNodes = 1 + kComposites + kComposites * kLeaves;

class TTwig : public TSmtComposite {
 public:
  static constexpr std::string_view kClassName = "TTwig";
  std::int32_t GetID() override { return 9001; }
  std::string GetDesc() override { return "twig"; }
  void BuildMotionList() override {
    for (int i = 0; i < kLeaves / 5; ++i) {
      Add(518, SOpenShutter);
      Add(519, SWaitShutter);
      Add(520, SLaserOn);
      Add<TSmtDelay>(612, SDelay).SetDelay(10);
      Add(517, SLaserOff);
    }
  }
};

class TTrunk : public TSmtComposite {
 public:
  static constexpr std::string_view kClassName = "TTrunk";
  std::int32_t GetID() override { return 9000; }
  std::string GetDesc() override { return "trunk"; }
  void BuildMotionList() override {
    for (int i = 0; i < kComposites; ++i) PlaceStep(i, MakeStep<TTwig>(StateCtrl()), "twig");
  }
};

int Nodes(const TSmtComposite& composite) {
  int nodes = 1;
  for (const TStepPtr& child : composite.MotionList()) {
    const auto* const inner = dynamic_cast<const TSmtComposite*>(child.get());
    nodes += inner ? Nodes(*inner) : 1;
  }
  return nodes;
}

class TTree {
 public:
  TTree() {
    const auto root = MakeStepOf<TTrunk>(nullptr);
    root->BuildData();
    if (Nodes(*root) != kNodes) throw std::runtime_error("the tree has not the nodes that it should have");
  }
  void Run() {
    const auto root = MakeStepOf<TTrunk>(nullptr);
    root->BuildData();
    benchmark::DoNotOptimize(root.get());
  }
};

}  // namespace

std::vector<TRow> TreeRows() {
  return {Measure<TTree>({.Id = "tree", .Name = "100 nodes built and freed", .MaxAllocations = 3 * kNodes})};
}

}  // namespace ixocamglue::bench
