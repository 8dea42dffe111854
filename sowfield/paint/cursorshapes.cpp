#include "sowfield/paint/cursorshapes.h"

#include <iterator>

#include "sowfield/paint/paintstate.h"

namespace sowfield {
namespace {

constexpr Point3 kNormal[] = {{0.00353f, -0.00195f, 0.386157f}, {0.00353f, -0.00195f, 1.82097f}};

// A quarter of the rim, taken round the four quadrants.
constexpr float kA = 0.930474f, kB = 0.36664f, kC = 0.70692f;
constexpr Point3 kRim[] = {{1, 0, 0},  {kA, kB, 0},   {kC, kC, 0},   {kB, kA, 0},
                           {0, 1, 0},  {-kB, kA, 0},  {-kC, kC, 0},  {-kA, kB, 0},
                           {-1, 0, 0}, {-kA, -kB, 0}, {-kC, -kC, 0}, {-kB, -kA, 0},
                           {0, -1, 0}, {kB, -kA, 0},  {kC, -kC, 0},  {kA, -kB, 0}};

constexpr Point3 kLetterS[] = {
    {-0.2597f, -0.0714f, 0}, {-0.1797f, -0.0644f, 0}, {-0.1534f, -0.1434f, 0},
    {-0.0894f, -0.1934f, 0}, {0.0083f, -0.2124f, 0},  {0.0934f, -0.1980f, 0},
    {0.1483f, -0.1583f, 0},  {0.1663f, -0.1036f, 0},  {0.1493f, -0.0511f, 0},
    {0.0922f, -0.0134f, 0},  {-0.0214f, 0.0178f, 0},  {-0.1447f, 0.0578f, 0},
    {-0.2131f, 0.1176f, 0},  {-0.2357f, 0.1976f, 0},  {-0.2082f, 0.2885f, 0},
    {-0.1280f, 0.3527f, 0},  {-0.0108f, 0.3746f, 0},  {0.1145f, 0.3517f, 0},
    {0.1980f, 0.2843f, 0},   {0.2293f, 0.1836f, 0},   {0.1483f, 0.1776f, 0},
    {0.1042f, 0.2680f, 0},   {-0.0070f, 0.2986f, 0},  {-0.1186f, 0.2704f, 0},
    {-0.1537f, 0.2026f, 0},  {-0.1289f, 0.1459f, 0},  {-0.0016f, 0.1003f, 0},
    {0.1396f, 0.0595f, 0},   {0.2218f, -0.0058f, 0},  {0.2483f, -0.0968f, 0},
    {0.2192f, -0.1931f, 0},  {0.1354f, -0.2633f, 0},  {0.0124f, -0.2884f, 0},
    {-0.1328f, -0.2630f, 0}, {-0.2246f, -0.1867f, 0}};
constexpr Point3 kLetterM[] = {
    {-0.3065f, -0.2879f, 0}, {-0.3065f, 0.3531f, 0}, {-0.1795f, 0.3531f, 0},
    {-0.0268f, -0.1005f, 0}, {0.0040f, -0.1954f, 0}, {0.0382f, -0.0927f, 0},
    {0.1919f, 0.3531f, 0},   {0.3065f, 0.3531f, 0},  {0.3065f, -0.2879f, 0},
    {0.2245f, -0.2879f, 0},  {0.2245f, 0.2491f, 0},  {0.0375f, -0.2879f, 0},
    {-0.0388f, -0.2879f, 0}, {-0.2245f, 0.2581f, 0}, {-0.2245f, -0.2879f, 0}};
constexpr Point3 kLetterE[] = {
    {-0.2137f, -0.2879f, 0}, {-0.2137f, 0.3531f, 0}, {0.2483f, 0.3531f, 0},
    {0.2483f, 0.2771f, 0},   {-0.1287f, 0.2771f, 0}, {-0.1287f, 0.0821f, 0},
    {0.2243f, 0.0821f, 0},   {0.2243f, 0.0061f, 0},  {-0.1287f, 0.0061f, 0},
    {-0.1287f, -0.2119f, 0}, {0.2633f, -0.2119f, 0}, {0.2633f, -0.2879f, 0}};

constexpr Point3 kArrow[] = {{0.2271f, 1.0455f, 0}, {0.2271f, 1.2908f, 0},  {0.5687f, 1.2908f, 0},
                             {0.0021f, 1.8558f, 0}, {-0.5644f, 1.2908f, 0}, {-0.2229f, 1.2908f, 0},
                             {-0.2229f, 1.0455f, 0}};
static_assert(std::size(kLetterS) == kMostCursorPoints);

constexpr CursorLine kLineCursor[] = {{kNormal, false}, {kRim}, {kLetterS}, {kArrow, false}};
constexpr CursorLine kMultiCursor[] = {{kNormal, false}, {kRim}, {kLetterM}};
constexpr CursorLine kEraseCursor[] = {{kNormal, false}, {kRim}, {kLetterE}};

}  // namespace

std::span<const CursorLine> CursorLines(int tool) {
  switch (tool) {
    case kLineTool:
      return kLineCursor;
    case kMultiTool:
      return kMultiCursor;
    case kEraseTool:
      return kEraseCursor;
    default:
      return {};
  }
}

}  // namespace sowfield
