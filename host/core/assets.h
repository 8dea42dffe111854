#pragma once

#include <vector>

#include "host/math/wstr.h"

/// The files outside a scene that its objects told the host of.
namespace MaxSDK::AssetManagement {

enum AssetType { kExternalLink = 7 };

struct Asset {
  WStr path;
  AssetType type;
  bool operator==(const Asset&) const = default;
};

class IAssetManager {
 public:
  /// That of the host in force; null without one.
  static IAssetManager* GetInstance();

  /// A file that is known already is listed once. Nothing here reads it, now or later.
  void GetAsset(const WStr& path, AssetType type);
  /// In the order in which they were told.
  const std::vector<Asset>& Assets() const { return assets_; }

 private:
  std::vector<Asset> assets_;
};

}  // namespace MaxSDK::AssetManagement
