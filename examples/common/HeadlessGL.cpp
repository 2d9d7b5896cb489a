#define GL_GLEXT_PROTOTYPES 1
#include "HeadlessGL.h"

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GL/gl.h>
#include <GL/glext.h>

HeadlessGL::HeadlessGL(int width, int height) : _width(width), _height(height) {
    EGLDisplay dpy = EGL_NO_DISPLAY;
    auto getPlatformDisplay =
        reinterpret_cast<PFNEGLGETPLATFORMDISPLAYEXTPROC>(eglGetProcAddress("eglGetPlatformDisplayEXT"));
    if (getPlatformDisplay) dpy = getPlatformDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
    if (dpy == EGL_NO_DISPLAY) { _error = "no surfaceless EGL display"; return; }
    EGLint major = 0, minor = 0;
    if (!eglInitialize(dpy, &major, &minor)) { _error = "eglInitialize failed"; return; }
    _display = dpy;
    if (!eglBindAPI(EGL_OPENGL_API)) { _error = "eglBindAPI(EGL_OPENGL_API) failed"; return; }
    const EGLint attribs[] = {EGL_CONTEXT_OPENGL_PROFILE_MASK, EGL_CONTEXT_OPENGL_COMPATIBILITY_PROFILE_BIT,
                              EGL_NONE};
    EGLContext ctx = eglCreateContext(dpy, EGL_NO_CONFIG_KHR, EGL_NO_CONTEXT, attribs);
    if (ctx == EGL_NO_CONTEXT) { _error = "eglCreateContext failed"; return; }
    _context = ctx;
    if (!eglMakeCurrent(dpy, EGL_NO_SURFACE, EGL_NO_SURFACE, ctx)) { _error = "eglMakeCurrent failed"; return; }

    glGenFramebuffers(1, &_fbo);
    glBindFramebuffer(GL_FRAMEBUFFER, _fbo);
    glGenRenderbuffers(1, &_color);
    glBindRenderbuffer(GL_RENDERBUFFER, _color);
    glRenderbufferStorage(GL_RENDERBUFFER, GL_RGBA8, width, height);
    glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_RENDERBUFFER, _color);
    glGenRenderbuffers(1, &_depth);
    glBindRenderbuffer(GL_RENDERBUFFER, _depth);
    glRenderbufferStorage(GL_RENDERBUFFER, GL_DEPTH_COMPONENT24, width, height);
    glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_DEPTH_ATTACHMENT, GL_RENDERBUFFER, _depth);
    if (glCheckFramebufferStatus(GL_FRAMEBUFFER) != GL_FRAMEBUFFER_COMPLETE) {
        _error = "framebuffer incomplete";
        return;
    }
    glViewport(0, 0, width, height);
    _ok = true;
}

HeadlessGL::~HeadlessGL() {
    if (_context) {
        if (_fbo) {
            glBindFramebuffer(GL_FRAMEBUFFER, 0);
            glDeleteRenderbuffers(1, &_depth);
            glDeleteRenderbuffers(1, &_color);
            glDeleteFramebuffers(1, &_fbo);
        }
        eglMakeCurrent(static_cast<EGLDisplay>(_display), EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
        eglDestroyContext(static_cast<EGLDisplay>(_display), static_cast<EGLContext>(_context));
    }
    if (_display) eglTerminate(static_cast<EGLDisplay>(_display));
}

std::string HeadlessGL::renderer() const {
    if (!_ok) return std::string();
    const GLubyte* r = glGetString(GL_RENDERER);
    return r ? reinterpret_cast<const char*>(r) : std::string();
}

std::vector<uint8_t> HeadlessGL::readPixels() const {
    std::vector<uint8_t> rows(static_cast<size_t>(_width) * _height * 4);
    if (!_ok) return rows;
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glReadPixels(0, 0, _width, _height, GL_RGBA, GL_UNSIGNED_BYTE, rows.data());
    // OpenGL's rows run bottom-up.
    std::vector<uint8_t> flipped(rows.size());
    const size_t stride = static_cast<size_t>(_width) * 4;
    for (int y = 0; y < _height; ++y)
        std::copy(rows.begin() + static_cast<long>(y * stride), rows.begin() + static_cast<long>((y + 1) * stride),
                  flipped.begin() + static_cast<long>((_height - 1 - y) * stride));
    return flipped;
}
