// A headless OpenGL context for tests and offscreen pictures: Mesa through EGL with no
// window system, rendering into a framebuffer object of the given size.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

class HeadlessGL {
public:
    // Creates a compatibility-profile context (display lists need one), makes it current
    // on the calling thread and binds a width x height RGBA + depth framebuffer. ok()
    // tells whether that worked and error() why not.
    explicit HeadlessGL(int width = 64, int height = 64);
    ~HeadlessGL();
    HeadlessGL(const HeadlessGL&) = delete;
    HeadlessGL& operator=(const HeadlessGL&) = delete;

    bool ok() const { return _ok; }
    const std::string& error() const { return _error; }
    std::string renderer() const;
    int width() const { return _width; }
    int height() const { return _height; }

    // The framebuffer as RGBA bytes, top row first.
    std::vector<uint8_t> readPixels() const;

private:
    void* _display = nullptr;
    void* _context = nullptr;
    unsigned _fbo = 0, _color = 0, _depth = 0;
    int _width, _height;
    bool _ok = false;
    std::string _error;
};
