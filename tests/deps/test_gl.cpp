// The headless OpenGL context the feather and source tests rely on, and the base
// library's drawing inside display lists.
#include <GL/gl.h>
#include <gtest/gtest.h>

#include <vector>

#include "base/UlmexBase.h"
#include "common/HeadlessGL.h"

using namespace Ulmex;

TEST(HeadlessGL, RecordsAndDeletesDisplayListsWithTheBaseDrawing) {
    HeadlessGL gl;
    ASSERT_TRUE(gl.ok()) << gl.error();
    EXPECT_FALSE(gl.renderer().empty());

    ZTriMesh mesh;
    mesh.points = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
    mesh.v012 = {ZTuple<3, int>(0, 1, 2)};
    mesh.uvs = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
    const ZBoundingBox box = mesh.boundingBox(false);

    const GLuint first = glGenLists(4);
    ASSERT_NE(first, 0u);
    glNewList(first, GL_COMPILE);
    mesh.drawVertices();
    glEndList();
    glNewList(first + 1, GL_COMPILE);
    mesh.drawWireframe();
    glEndList();
    glNewList(first + 2, GL_COMPILE);
    mesh.drawSurface(true);
    mesh.drawSurface(false);
    glEndList();
    glNewList(first + 3, GL_COMPILE);
    box.draw();
    glEndList();
    EXPECT_EQ(glGetError(), static_cast<GLenum>(GL_NO_ERROR));
    for (GLuint i = 0; i < 4; ++i) EXPECT_EQ(glIsList(first + i), GL_TRUE) << i;

    // Playing the surface list back draws the triangle into the framebuffer.
    glClearColor(0, 0, 0, 1);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    glMatrixMode(GL_PROJECTION);
    glLoadIdentity();
    glOrtho(0, 1, 0, 1, -1, 1);
    glMatrixMode(GL_MODELVIEW);
    glLoadIdentity();
    glColor3f(1, 1, 1);
    glCallList(first + 2);
    glFinish();
    const std::vector<uint8_t> px = gl.readPixels();
    const int w = gl.width(), h = gl.height();
    auto red = [&](int x, int y) { return px[(static_cast<size_t>(y) * w + x) * 4]; };
    EXPECT_GT(red(w / 4, h - 1 - h / 4), 200);  // inside the lower-left triangle
    EXPECT_LT(red(w - 4, 3), 50);               // top-right corner stays clear

    glDeleteLists(first, 4);
    for (GLuint i = 0; i < 4; ++i) EXPECT_EQ(glIsList(first + i), GL_FALSE) << i;
    EXPECT_EQ(glGetError(), static_cast<GLenum>(GL_NO_ERROR));
}
