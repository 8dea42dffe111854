#pragma once

#include <vector>

#include "host/viewport/renderitems.h"

class Interface;
class ViewExp;
enum HitType : int;
struct SnapInfo;

namespace host {

/// A node that a redraw shows, with what is drawn at it. Node and object stay alive meanwhile.
struct ShownNode {
  Pin<INode> node;
  Pin<Object> object;
  Matrix3 tm;  // object to world, finite
  RenderItemContainer items;
};

/// The first half of a redraw: for each node that is neither hidden nor on a hidden layer its
/// object draws into the view's window, which is cleared before, and then gives the node's items.
/// Nodes whose matrix isn't finite are passed over. To be called within a redraw of Viewports.
std::vector<ShownNode> ShowNodes(Interface& ip, ViewExp& view, TimeValue t);

/// The nodes that a pick in the view hits, in the scene's order, hidden ones left out: at the point
/// `p[0]`, or in the rectangle of `p[0]` and `p[1]`. Objects are asked as they were last drawn.
std::vector<INode*> PickNodes(Interface& ip, ViewExp& view, HitType type, bool crossing,
                              const IPoint2* p);

/// The snap point of the same nodes that is best for the mouse at `p`: 1 if there is one, with
/// `snap` filled.
int SnapNodes(Interface& ip, ViewExp& view, const IPoint2& p, SnapInfo& snap);

}  // namespace host
