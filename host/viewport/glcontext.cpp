#include "host/viewport/glcontext.h"

#include <dlfcn.h>
#include <epoxy/egl.h>

namespace host {

std::string MissingLibrary(std::initializer_list<NeededLibrary> anyOf) {
  std::string files, packages;
  for (const auto& [file, package] : anyOf) {
    // Stays loaded: it is used next.
    if (dlopen(file, RTLD_LAZY | RTLD_LOCAL)) return {};
    files += (files.empty() ? "" : " or ") + std::string(file);
    packages += (packages.empty() ? "" : " or ") + std::string(package);
  }
  return "the library " + files + " can't be loaded; on Debian the package " + packages +
         " brings it";
}

namespace {

struct Context {
  EGLDisplay display = EGL_NO_DISPLAY;
  EGLContext context = EGL_NO_CONTEXT;
  std::string error;
};

constexpr const char* kDriver =
    "; OpenGL's driver may be missing: on Debian libegl-mesa0 and "
    "libgl1-mesa-dri bring one that needs no display";

std::string MissingLibraries() {
  const std::string egl = MissingLibrary({{"libEGL.so.1", "libegl1"}});
  if (!egl.empty()) return egl;
  return MissingLibrary({{"libOpenGL.so.0", "libopengl0"}, {"libGL.so.1", "libgl1"}});
}

Context Make() {
  Context made;
  made.error = MissingLibraries();
  if (!made.error.empty()) return made;
  if (!epoxy_has_egl_extension(EGL_NO_DISPLAY, "EGL_EXT_platform_base") ||
      !epoxy_has_egl_extension(EGL_NO_DISPLAY, "EGL_MESA_platform_surfaceless")) {
    made.error = std::string("EGL has no surfaceless platform") + kDriver;
    return made;
  }
  made.display =
      eglGetPlatformDisplayEXT(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
  EGLint major = 0, minor = 0;
  if (made.display == EGL_NO_DISPLAY || !eglInitialize(made.display, &major, &minor)) {
    made.error = std::string("EGL can't be started") + kDriver;
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
  const EGLenum apiBefore = eglQueryAPI();
  if (eglBindAPI(EGL_OPENGL_API) && eglChooseConfig(made.display, wanted, &config, 1, &found) &&
      found == 1)
    made.context = eglCreateContext(made.display, config, EGL_NO_CONTEXT, version);
  eglBindAPI(apiBefore);
  if (made.context == EGL_NO_CONTEXT)
    made.error = std::string("EGL gives no OpenGL 3.3 core context") + kDriver;
  return made;
}

const Context& TheContext() {
  static const Context context = Make();
  return context;
}

}  // namespace

GlScope::GlScope() {
  const Context& own = TheContext();
  error_ = own.error;
  if (!error_.empty()) return;
  apiBefore_ = eglQueryAPI();
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
