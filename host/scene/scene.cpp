#include "host/scene/scene.h"

#include <algorithm>
#include <unordered_set>

#include "host/core/notify.h"
#include "host/core/paramblock.h"

namespace {

// A node and all below it, parents before children.
template <class F>
void EachFrom(INode* node, const F& act) {
  std::vector<INode*> open = {node};
  while (!open.empty()) {
    INode* n = open.back();
    open.pop_back();
    act(n);
    for (int i = n->NumberOfChildren(); i-- > 0;) open.push_back(n->GetChildNode(i));
  }
}

}  // namespace

WStr Scene::Numbered(const WStr& base, int number) {
  WStr digits = std::to_wstring(number);
  if (digits.size() < 3) digits.insert(0, 3 - digits.size(), L'0');
  return base + digits;
}

Scene::Scene() {
  auto* root = new INode(L"Scene Root");
  root->isRoot_ = true;
  ReplaceReference(0, root);
  ReplaceReference(1, new ILayerManager);
}

Scene::~Scene() { Scene::DeleteAllRefsFromMe(); }

// A record may keep a root beyond its scene.
void Scene::TakeRoot(INode* root) {
  if (root_) {
    for (NodeObserver* o : std::exchange(observers_, {})) o->SceneWent();
    names_.clear();
    namesKnown_ = false;
    root_->scene_ = nullptr;
  }
  root_ = root;
  if (root_) root_->scene_ = this;
}

ReferenceTarget* Scene::GetReference(int i) const {
  if (i == 0) return root_;
  return i == 1 ? static_cast<ReferenceTarget*>(layers_) : renderer_;
}

void Scene::SetReference(int i, ReferenceTarget* t) {
  if (i == 0) {
    TakeRoot(static_cast<INode*>(t));
  } else if (i == 1) {
    layers_ = static_cast<ILayerManager*>(t);
  } else {
    renderer_ = static_cast<Renderer*>(t);
  }
}

INode* Scene::CreateObjectNode(Object* object) {
  WStr base;
  if (object) object->InitNodeName(base);
  if (base.empty()) base = L"Node";
  auto* node = new INode(Numbered(base, ++nextNumber_[base]));
  node->ReplaceReference(INode::kLayerRef, layers_->GetCurrentLayer());
  root_->AttachChild(node, false);
  node->ReplaceReference(INode::kObjectRef, object);
  return node;
}

void Scene::CountNames() {
  constexpr size_t kMostDigits = 8;
  for (const INode* n : AllNodes()) {
    const WStr& name = n->GetName();
    size_t digits = 0;
    while (digits < name.size() && name[name.size() - digits - 1] >= L'0' &&
           name[name.size() - digits - 1] <= L'9')
      ++digits;
    if (digits == 0 || digits > kMostDigits) continue;
    int& last = nextNumber_[name.substr(0, name.size() - digits)];
    last = std::max(last, std::stoi(name.substr(name.size() - digits)));
  }
}

bool Scene::Noticed(const INode* node) {
  if (node->IsPinned()) return true;
  const auto& dependents = node->Dependents();
  return std::any_of(dependents.begin(), dependents.end(), [](const ReferenceTarget* d) {
    return dynamic_cast<const IParamBlock2*>(d) != nullptr;
  });
}

int Scene::DeleteNodes(std::span<INode* const> nodes) {
  std::vector<INode*> list;
  std::unordered_set<INode*> known;
  for (INode* n : nodes)
    if (n && n->InScene() && !n->IsRootNode() && known.insert(n).second) list.push_back(n);
  if (list.empty()) return 0;

  const bool ownStep = !theHold.Holding() && theHold.RestoreOrRedoing() == 0 &&
                       std::any_of(list.begin(), list.end(), Noticed);
  if (ownStep) theHold.Begin();
  std::vector<Pin<INode>> alive;
  for (INode* n : list) alive.emplace_back(n);
  NullAndTell(list);
  for (INode* n : list)
    if (n->InScene()) TakeOut(n);  // a handler may have taken it out
  if (ownStep) theHold.Accept(L"Delete");
  return int(list.size());
}

void Scene::NullAndTell(std::span<INode* const> nodes) {
  struct Nulled {
    Pin<IParamBlock2> block;
    ParamID id;
  };
  std::vector<Nulled> nulled;
  for (INode* n : nodes) {
    const std::vector<ReferenceTarget*> dependents = n->Dependents();
    for (ReferenceTarget* d : dependents) {
      auto* block = dynamic_cast<IParamBlock2*>(d);
      if (!block) continue;
      for (const ParamID id : block->NullEntries(n)) {
        const bool known = std::any_of(nulled.begin(), nulled.end(), [&](const Nulled& e) {
          return e.block.get() == block && e.id == id;
        });
        if (!known) nulled.push_back({Pin<IParamBlock2>(block), id});
      }
    }
  }
  for (const Nulled& e : nulled) e.block->SendNulled(e.id);
}

void Scene::TakeOut(INode* node) {
  INode* parent = node->GetParentNode();
  while (node->NumberOfChildren() > 0) parent->AttachChild(node->GetChildNode(0), true);

  const bool madeHere = theHold->DropIfMadeHere(node, [](const RestoreObj& r) {
    const auto* link = dynamic_cast<const NodeLinkRecord*>(&r);
    return link && link->GetKind() == NodeLinkRecord::Kind::Attached;
  });
  const Pin<INode> alive(node);
  const size_t at = parent->RemoveChild(node);
  if (!madeHere)
    theHold->Put(
        std::make_unique<NodeLinkRecord>(node, parent, at, NodeLinkRecord::Kind::Detached));
  node->selectedAs_ = 0;
  BroadcastNotification({NOTIFY_NODE_LEFT_SCENE, 0, node});
}

std::vector<INode*> Scene::Selection() const {
  std::vector<INode*> selected = AllNodes();
  std::erase_if(selected, [](const INode* n) { return !n->Selected(); });
  std::sort(selected.begin(), selected.end(),
            [](const INode* a, const INode* b) { return a->selectedAs_ < b->selectedAs_; });
  return selected;
}

void Scene::SelectNode(INode* node, bool clearSelection) {
  if (clearSelection) ClearNodeSelection();
  if (!node->Selected()) node->selectedAs_ = ++lastSelected_;
}

void Scene::ClearNodeSelection() {
  for (INode* n : AllNodes()) n->selectedAs_ = 0;
  lastSelected_ = 0;
}

std::vector<INode*> Scene::AllNodes() const {
  std::vector<INode*> all;
  EachFrom(root_, [&](INode* n) {
    if (n != root_) all.push_back(n);
  });
  return all;
}

void Scene::NodeCame(INode* node) {
  if (observers_.empty() && !namesKnown_) return;
  EachFrom(node, [&](INode* n) {
    NameComes(n);
    for (NodeObserver* o : observers_) o->NodeCame(n);
  });
}

void Scene::NodeWent(INode* node) {
  if (observers_.empty() && !namesKnown_) return;
  EachFrom(node, [&](INode* n) {
    NameGoes(n);
    for (NodeObserver* o : observers_) o->NodeWent(n);
  });
}

void Scene::NodeChanged(INode* node) {
  for (NodeObserver* o : observers_) o->NodeChanged(node);
}

void Scene::NameComes(INode* node) {
  if (namesKnown_) names_.emplace(node->GetName(), node);
}

void Scene::NameGoes(INode* node) {
  if (namesKnown_) names_.erase({node->GetName(), node});
}

const std::set<std::pair<WStr, INode*>>& Scene::Names() const {
  if (!std::exchange(namesKnown_, true))
    for (INode* n : AllNodes()) names_.emplace(n->GetName(), n);
  return names_;
}

bool Scene::HasNode(const WStr& name) const {
  const auto first = Names().lower_bound({name, nullptr});
  return first != names_.end() && first->first == name;
}

std::vector<INode*> Scene::FindNodes(const WStr& name) const {
  std::vector<INode*> found;
  for (auto n = Names().lower_bound({name, nullptr}); n != names_.end() && n->first == name; ++n)
    found.push_back(n->second);
  std::sort(found.begin(), found.end(),
            [](const INode* a, const INode* b) { return a->ComesBefore(b); });
  return found;
}

WStr Scene::UniqueName(const WStr& base) const {
  if (!HasNode(base)) return base;
  for (int i = 1;; ++i) {
    const WStr name = Numbered(base, i);
    if (!HasNode(name)) return name;
  }
}
