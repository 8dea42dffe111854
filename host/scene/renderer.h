#pragma once

#include "host/core/reference.h"

/// What makes pictures of a scene. A scene has at most one; plug-ins bring the classes.
class Renderer : public ReferenceTarget {
 public:
  SClass_ID SuperClassID() const override { return RENDERER_CLASS_ID; }
};
