// Points, lists of points and straight lines, as the gas calibration calculates with them. No locks.
//
// In the calibration list X is the valve's voltage (V) and Y the pressure (bar); in the list of samples X is the time
// (ms, monotonic) and Y the pressure. Nothing throws; where an operation answers a bool, false leaves its outputs
// alone.
#pragma once

#include <cstdint>
#include <vector>

namespace ixocamglue {

inline constexpr double Epsilon_Voltage = 1e-5;  // V; equality, vertical-line test
inline constexpr double kValueEpsilon = 1e-5;    // V, bar or 1

struct TDot {
  double X = 0.0;
  double Y = 0.0;
  friend bool operator==(const TDot&, const TDot&) = default;
};

// -1, 0 or 1.
struct TVolCom {
  [[nodiscard]] static int Compare(double a, double b) { return a < b ? -1 : static_cast<int>(a > b); }
};
struct TDotXCom {
  [[nodiscard]] static int Compare(const TDot& a, const TDot& b) { return TVolCom::Compare(a.X, b.X); }
};
struct TDotYCom {
  [[nodiscard]] static int Compare(const TDot& a, const TDot& b) { return TVolCom::Compare(a.Y, b.Y); }
};

// Points in ascending order of X. Indices count from 0; one outside is a mistake that nobody checks. Two values are the
// same when they differ by no more than `eps`. Append may break the order; what searches by X may be asked again after
// SortByX. A point that is not finite is dropped.
class TIncList {
 public:
  [[nodiscard]] std::int32_t Count() const { return static_cast<std::int32_t>(FDots.size()); }
  [[nodiscard]] const TDot& operator[](std::int32_t index) const { return FDots[static_cast<std::size_t>(index)]; }
  [[nodiscard]] const std::vector<TDot>& Dots() const { return FDots; }
  [[nodiscard]] std::uint32_t Version() const { return FVersion; }  // counts the insertions
  void IncVersion() { ++FVersion; }

  void Clear();
  void AddItem(TDot dot);  // where its X belongs, behind the points of the same X
  void Append(TDot dot);   // at the end, wherever its X belongs
  void SetY(std::int32_t index, double y);
  void Delete(std::int32_t index) { FDots.erase(FDots.begin() + index); }
  void SortByX();  // stable

  // -1 when the list is empty or x lies below the first X, else the last index i with X[i] <= x. Exact.
  [[nodiscard]] std::int32_t FindIndex(double x) const;
  // The same between lo and hi, where X[lo] <= x < X[hi].
  [[nodiscard]] std::int32_t BinarySearchDot(std::int32_t lo, std::int32_t hi, double x) const;
  // The point that FindIndex finds, or else the one behind it, when its X is the same as x; -1 when neither is.
  [[nodiscard]] std::int32_t FindNearBy(double eps, double x) const;
  [[nodiscard]] bool CheckNearBy(double eps, double x) const { return FindNearBy(eps, x) >= 0; }
  void DelNearBy(double eps, double x);  // at most one

  void DelDupItem(double eps);  // of points with the same X the last one stays
  void MonoInc(double eps);     // raises Y where it does not increase by `eps`

  // Where the polyline reaches y (x): 0 for an empty list or below the first point, the last point's value above the
  // last one; the first point that matches within 1e-5, else the first segment, rising or falling.
  [[nodiscard]] double GetX(double y) const;
  [[nodiscard]] double GetY(double x) const;
  // The mean of Y over from..to, both included; false when the range is empty or leaves the list.
  [[nodiscard]] bool Average(std::int32_t from, std::int32_t to, double& mean) const;

 private:
  [[nodiscard]] bool Sorted() const;  // reports a fault when not

  std::vector<TDot> FDots;
  std::uint32_t FVersion = 0;
  bool FSorted = true;
};

// y = kx + b, or all points of one X.
class TLine {
 public:
  TLine(double k, double b) : FK(k), FB(b) {}
  TLine(TDot from, TDot to);  // vertical at to.X when both stand within Epsilon_Voltage

  [[nodiscard]] bool Vertical() const { return FVertical; }
  [[nodiscard]] double K() const { return FK; }
  [[nodiscard]] double B() const { return FB; }
  [[nodiscard]] bool GetX(double y, double& x) const;                    // false for a horizontal line
  [[nodiscard]] bool GetY(double x, double& y) const;                    // false for a vertical line
  [[nodiscard]] bool CrossPoint(const TLine& other, TDot& cross) const;  // false for parallel lines

 private:
  bool FVertical = false;
  double FK = 0.0;
  double FB = 0.0;
  double FX = 0.0;  // of a vertical line
};

}  // namespace ixocamglue
