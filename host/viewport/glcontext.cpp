#include "host/viewport/glcontext.h"

#include <epoxy/egl.h>

namespace host {

namespace {

struct Context {
  EGLDisplay display = EGL_NO_DISPLAY;
  EGLContext context = EGL_NO_CONTEXT;
  std::string error;
};

Context Make() {
  Context made;
  if (!epoxy_has_egl_extension(EGL_NO_DISPLAY, "EGL_EXT_platform_base") ||
      !epoxy_has_egl_extension(EGL_NO_DISPLAY, "EGL_MESA_platform_surfaceless")) {
    made.error = "EGL has no surfaceless platform";
    return made;
  }
  made.display =
      eglGetPlatformDisplayEXT(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
  EGLint major = 0, minor = 0;
  if (made.display == EGL_NO_DISPLAY || !eglInitialize(made.display, &major, &minor)) {
    made.error = "EGL cannot be started";
    return made;
  }
  const EGLint wanted[] = {EGL_SURFACE_TYPE, EGL_PBUFFER_BIT, EGL_RENDERABLE_TYPE, EGL_OPENGL_BIT,
                           EGL_NONE};
  const EGLint version[] = {EGL_CONTEXT_MAJOR_VERSION_KHR,
                            3,
                            EGL_CONTEXT_MINOR_VERSION_KHR,
                            3,
                            EGL_CONTEXT_OPENGL_PROFILE_MASK_KHR,
                            EGL_CONTEXT_OPENGL_CORE_PROFILE_BIT_KHR,
                            EGL_NONE};
  EGLConfig config = nullptr;
  EGLint found = 0;
  if (eglBindAPI(EGL_OPENGL_API) && eglChooseConfig(made.display, wanted, &config, 1, &found) &&
      found == 1)
    made.context = eglCreateContext(made.display, config, EGL_NO_CONTEXT, version);
  if (made.context == EGL_NO_CONTEXT) made.error = "EGL gives no OpenGL 3.3 core context";
  return made;
}

const Context& TheContext() {
  static const Context context = Make();
  return context;
}

}  // namespace

GlScope::GlScope() {
  // Before Make binds an interface of its own.
  apiBefore_ = eglQueryAPI();
  const Context& own = TheContext();
  error_ = own.error;
  if (!error_.empty()) return;
  displayBefore_ = eglGetCurrentDisplay();
  contextBefore_ = eglGetCurrentContext();
  drawBefore_ = eglGetCurrentSurface(EGL_DRAW);
  readBefore_ = eglGetCurrentSurface(EGL_READ);
  eglBindAPI(EGL_OPENGL_API);
  if (!eglMakeCurrent(own.display, EGL_NO_SURFACE, EGL_NO_SURFACE, own.context))
    error_ = "the OpenGL context cannot be made current";
}

GlScope::~GlScope() {
  if (!TheContext().error.empty()) return;
  if (contextBefore_ == EGL_NO_CONTEXT) {
    eglMakeCurrent(TheContext().display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
  } else {
    eglMakeCurrent(displayBefore_, drawBefore_, readBefore_, contextBefore_);
  }
  eglBindAPI(apiBefore_);
}

}  // namespace host
