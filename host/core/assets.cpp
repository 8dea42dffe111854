#include "host/core/assets.h"

#include <algorithm>

#include "host/core/session.h"

namespace MaxSDK::AssetManagement {

IAssetManager* IAssetManager::GetInstance() {
  host::CoreSession* session = host::CoreSession::InForceOrNull();
  return session ? &session->assets : nullptr;
}

void IAssetManager::GetAsset(const WStr& path, AssetType type) {
  const Asset asset{path, type};
  if (std::find(assets_.begin(), assets_.end(), asset) == assets_.end()) assets_.push_back(asset);
}

}  // namespace MaxSDK::AssetManagement
