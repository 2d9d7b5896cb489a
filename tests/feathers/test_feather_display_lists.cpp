// Display lists of feathers and sources in a real headless OpenGL context.
#include <GL/gl.h>
#include <gtest/gtest.h>

#include "common/HeadlessGL.h"
#include "feathers/FeatherFixtures.h"
#include "feathers/ZSource.h"

namespace {

template <typename T>
bool allLive(const T& o) {
    for (int id : o.displayLists)
        if (id < 0 || glIsList(static_cast<GLuint>(id)) != GL_TRUE) return false;
    return true;
}

template <typename T>
bool noneLive(const int (&ids)[7]) {
    for (int id : ids)
        if (id >= 0 && glIsList(static_cast<GLuint>(id)) == GL_TRUE) return false;
    return true;
}

template <typename T>
void checkLifecycle(T& a, T& b) {
    a.genDisplayLists();
    b.genDisplayLists();
    ASSERT_TRUE(allLive(a));
    ASSERT_TRUE(allLive(b));
    for (int s = 1; s < 7; ++s) EXPECT_NE(a.displayLists[s], a.displayLists[s - 1]);

    // reset deletes the lists and keeps their numbers.
    int before[7];
    std::copy(a.displayLists, a.displayLists + 7, before);
    a.reset();
    EXPECT_TRUE(std::equal(before, before + 7, a.displayLists));
    EXPECT_TRUE(noneLive<T>(a.displayLists));
    EXPECT_TRUE(allLive(b));

    // Assignment deletes the left-hand lists (numbers kept) and leaves the right-hand ones.
    a.genDisplayLists();
    std::copy(a.displayLists, a.displayLists + 7, before);
    a = b;
    EXPECT_TRUE(std::equal(before, before + 7, a.displayLists));
    EXPECT_TRUE(noneLive<T>(a.displayLists));
    EXPECT_TRUE(allLive(b));

    // A copy shares no list; the original's stay alive; destruction deletes.
    {
        T copy(b);
        for (int id : copy.displayLists) EXPECT_EQ(id, -1);
        copy.genDisplayLists();
        EXPECT_TRUE(allLive(copy));
        for (int s = 0; s < 7; ++s) EXPECT_NE(copy.displayLists[s], b.displayLists[s]);
        std::copy(copy.displayLists, copy.displayLists + 7, before);
    }
    EXPECT_TRUE(noneLive<T>(before));
    EXPECT_TRUE(allLive(b));
    EXPECT_EQ(glGetError(), static_cast<GLenum>(GL_NO_ERROR));
}

} // namespace

TEST(FeatherDisplayLists, SevenListsAndTheirLifecycle) {
    HeadlessGL gl;
    ASSERT_TRUE(gl.ok()) << gl.error();
    ZFeather a = fixtures::diamondFeather(), b = fixtures::diamondFeather();
    checkLifecycle(a, b);
    // Direct drawing needs no list.
    b.drawVertices();
    b.drawWireframe();
    b.drawSurface();
    EXPECT_EQ(glGetError(), static_cast<GLenum>(GL_NO_ERROR));
}

TEST(SourceDisplayLists, SevenListsAndTheirLifecycle) {
    HeadlessGL gl;
    ASSERT_TRUE(gl.ok()) << gl.error();
    const ZFeather f = fixtures::diamondFeather();
    ZSource a, b;
    a.mesh = b.mesh = f.mesh;
    a.curves = b.curves = f.curves;
    a.initialize();
    b.initialize();
    checkLifecycle(a, b);
}

TEST(FeatherDefaults, FreshObjectsHoldNoListsAndWhiteColour) {
    ZFeather f;
    ZSource s;
    for (int c = 0; c < 4; ++c) {
        EXPECT_EQ(f.color[c], 1.f);
        EXPECT_EQ(s.color[c], 1.f);
    }
    for (int s7 = 0; s7 < 7; ++s7) {
        EXPECT_EQ(f.displayLists[s7], -1);
        EXPECT_EQ(s.displayLists[s7], -1);
    }
}
