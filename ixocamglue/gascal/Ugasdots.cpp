#include "ixocamglue/gascal/Ugasdots.h"

#include <algorithm>
#include <cmath>

#include "ixocamglue/support/Faults.h"

namespace ixocamglue {
namespace {

bool Same(double a, double b, double eps) { return std::abs(a - b) <= eps; }

// The value of `To` at which the polyline has `from` in `From`; see TIncList::GetX.
template <double TDot::*From, double TDot::*To>
double Interpolate(const std::vector<TDot>& dots, double from) {
  if (dots.empty() || from < dots.front().*From - kValueEpsilon) return 0.0;
  if (from > dots.back().*From + kValueEpsilon) return dots.back().*To;
  for (const TDot& dot : dots)
    if (Same(dot.*From, from, kValueEpsilon)) return dot.*To;
  for (std::size_t i = 0; i + 1 < dots.size(); ++i) {
    const TDot& a = dots[i];
    const TDot& b = dots[i + 1];
    if (from >= std::min(a.*From, b.*From) && from <= std::max(a.*From, b.*From))
      return a.*To + (from - a.*From) / (b.*From - a.*From) * (b.*To - a.*To);
  }
  return 0.0;  // `from` is no number
}

}  // namespace

// --- TIncList ---

bool TIncList::Sorted() const {
  return FSorted || FaultOr(false, "TIncList: a search while the points are not in order");
}

void TIncList::Clear() {
  FDots.clear();
  FSorted = true;
}

void TIncList::AddItem(TDot dot) {
  if (!std::isfinite(dot.X) || !std::isfinite(dot.Y)) return;
  FDots.insert(FDots.begin() + (FindIndex(dot.X) + 1), dot);
  ++FVersion;
}

void TIncList::Append(TDot dot) {
  if (!std::isfinite(dot.X) || !std::isfinite(dot.Y)) return;
  FSorted = FSorted && (FDots.empty() || FDots.back().X <= dot.X);
  FDots.push_back(dot);
  ++FVersion;
}

void TIncList::SetY(std::int32_t index, double y) {
  if (std::isfinite(y)) FDots[static_cast<std::size_t>(index)].Y = y;
}

void TIncList::SortByX() {
  std::ranges::stable_sort(FDots, [](const TDot& a, const TDot& b) { return TDotXCom::Compare(a, b) < 0; });
  FSorted = true;
}

std::int32_t TIncList::FindIndex(double x) const {
  if (FDots.empty() || !Sorted() || !(x >= FDots.front().X)) return -1;
  const std::int32_t last = Count() - 1;
  return x >= FDots.back().X ? last : BinarySearchDot(0, last, x);
}

std::int32_t TIncList::BinarySearchDot(std::int32_t lo, std::int32_t hi, double x) const {
  while (hi - lo > 1) {
    const std::int32_t middle = lo + (hi - lo) / 2;
    ((*this)[middle].X <= x ? lo : hi) = middle;
  }
  return lo;
}

std::int32_t TIncList::FindNearBy(double eps, double x) const {
  const std::int32_t found = FindIndex(x);
  for (const std::int32_t index : {found, found + 1})
    if (index >= 0 && index < Count() && Same((*this)[index].X, x, eps)) return index;
  return -1;
}

void TIncList::DelNearBy(double eps, double x) {
  if (const std::int32_t index = FindNearBy(eps, x); index >= 0) Delete(index);
}

void TIncList::DelDupItem(double eps) {
  for (std::int32_t i = Count() - 2; i >= 0; --i)
    if (Same((*this)[i].X, (*this)[i + 1].X, eps)) Delete(i);
}

void TIncList::MonoInc(double eps) {
  for (std::size_t i = 1; i < FDots.size(); ++i)
    if (FDots[i].Y - eps < FDots[i - 1].Y) FDots[i].Y = FDots[i - 1].Y + eps;
}

double TIncList::GetX(double y) const { return Interpolate<&TDot::Y, &TDot::X>(FDots, y); }
double TIncList::GetY(double x) const { return Interpolate<&TDot::X, &TDot::Y>(FDots, x); }

bool TIncList::Average(std::int32_t from, std::int32_t to, double& mean) const {
  if (from < 0 || from > to || to >= Count()) return false;
  double sum = 0.0;
  for (std::int32_t i = from; i <= to; ++i) sum += (*this)[i].Y;
  mean = sum / (to - from + 1);
  return true;
}

// --- TLine ---

TLine::TLine(TDot from, TDot to) : FVertical(std::abs(to.X - from.X) < Epsilon_Voltage), FX(to.X) {
  if (FVertical) return;
  FK = (to.Y - from.Y) / (to.X - from.X);
  FB = to.Y - FK * to.X;
}

bool TLine::GetX(double y, double& x) const {
  if (!FVertical && std::abs(FK) < kValueEpsilon) return false;
  x = FVertical ? FX : (y - FB) / FK;
  return true;
}

bool TLine::GetY(double x, double& y) const {
  if (FVertical) return false;
  y = FK * x + FB;
  return true;
}

bool TLine::CrossPoint(const TLine& other, TDot& cross) const {
  if (FVertical && other.FVertical) return false;
  if (!FVertical && !other.FVertical && std::abs(FK - other.FK) < kValueEpsilon) return false;
  const double x = FVertical ? FX : other.FVertical ? other.FX : (other.FB - FB) / (FK - other.FK);
  const TLine& slanted = FVertical ? other : *this;
  cross = {x, slanted.FK * x + slanted.FB};
  return true;
}

}  // namespace ixocamglue
