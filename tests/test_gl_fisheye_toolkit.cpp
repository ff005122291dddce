// The shared fisheye toolkit pieces whose numbers every dome view relies on:
// the dome mesh, the packed backdrop picture and its expander, angle wrap.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "CloudPicture.h"
#include "FisheyeCommon.h"

TEST(DomeMesh, DefaultDomeHas27336VerticesOnTheSquashedSphere)
{
    DomeParams params;
    params.zScale = 0.97f;
    EXPECT_EQ(DomeMesh::Capacity(params), 27336);
    DomeMesh mesh;
    ASSERT_EQ(mesh.Build(params), 0);
    ASSERT_EQ(mesh.nVertexCount, 27336);

    float maxA = 0, maxB = 0, minZ = 0;
    for (int i = 0; i < mesh.nVertexCount; i++) {
        const float *p = mesh.pVertices + 3 * i, *t = mesh.pTexCoords + 2 * i;
        // Undo the squash: every vertex lies on the sphere of radius 6.
        double z = p[2] / 0.97;
        ASSERT_NEAR(std::sqrt(p[0] * p[0] + p[1] * p[1] + z * z), 6.0, 1e-4) << i;
        // The texture coordinate is the angle pair itself.
        ASSERT_NEAR(p[0], -6.0 * std::sin(t[0]) * std::cos(t[1]), 1e-4) << i;
        ASSERT_NEAR(p[1], -6.0 * std::cos(t[0]) * std::cos(t[1]), 1e-4) << i;
        maxA = std::max(maxA, t[0]);
        maxB = std::max(maxB, t[1]);
        minZ = std::min(minZ, p[2]);
    }
    // The last column and row run past their ranges: seam overlap and pole.
    EXPECT_NEAR(maxA, 6.31460, 1e-4);
    EXPECT_NEAR(maxB, 1.60221, 1e-4);
    EXPECT_NEAR(minZ, -6.0 * 0.97, 1e-3); // zenith below the rim plane
    // Vertex order of a cell: (a,b) (a+d,b) (a,b+d) (a,b+d) (a+d,b) (a+d,b+d).
    const float d = 0.04712385f;
    const float expect[6][2] = {{0, 0}, {d, 0}, {0, d}, {0, d}, {d, 0}, {d, d}};
    for (int k = 0; k < 6; k++) {
        EXPECT_NEAR(mesh.pTexCoords[2 * k], expect[k][0], 1e-6);
        EXPECT_NEAR(mesh.pTexCoords[2 * k + 1], expect[k][1], 1e-6);
    }
    // Latitude runs in the inner loop.
    EXPECT_NEAR(mesh.pTexCoords[2 * 6 + 1], d, 1e-6);
    EXPECT_NEAR(mesh.pTexCoords[2 * 6], 0.0f, 1e-6);
    mesh.Free();
    EXPECT_EQ(mesh.nVertexCount, 0);
}

TEST(DomeMesh, VertexHookReplacesTheStandardVertex)
{
    DomeParams params;
    params.step = 0.5f;
    DomeMesh mesh;
    int calls = 0;
    ASSERT_EQ(mesh.Build(
                  params,
                  [](double a, double b, const DomeParams &, float *pos, float *tex, void *user) {
                      ++*static_cast<int *>(user);
                      pos[0] = pos[1] = pos[2] = 1.0f;
                      tex[0] = float(a + b);
                      tex[1] = 0.0f;
                  },
                  &calls),
              0);
    EXPECT_EQ(calls, mesh.nVertexCount);
    EXPECT_EQ(mesh.nVertexCount, DomeMesh::Capacity(params));
    EXPECT_FLOAT_EQ(mesh.pVertices[3 * (mesh.nVertexCount - 1)], 1.0f);
    mesh.Free();

    params.step = 0.0f; // no mesh rather than an endless loop
    EXPECT_NE(mesh.Build(params), 0);
    EXPECT_EQ(mesh.nVertexCount, 0);
}

TEST(CloudPicture, PacketFormsExpand)
{
    // 480x480 head, then: a literal of 3 (bits 13/14 clear), a run of 300
    // with one extra length byte (bit 13), a run of 70000 with two (bit 14).
    std::vector<unsigned char> block = {0xE0, 0x01, 0xE0, 0x01};
    auto word = [&](unsigned w) {
        block.push_back(w & 0xFF);
        block.push_back(w >> 8);
    };
    word((3 << 8) | 7);
    block.push_back(8);
    block.push_back(9);
    word(0x8000 | 0x2000 | (300 & 0x1F00) | 0x42);
    block.push_back(300 & 0xFF);
    // 70000 = ((0x100 + 0x11) << 8) + 0x70
    word(0x8000 | 0x4000 | 0x0100 | 0x55);
    block.push_back(0x70);
    block.push_back(0x11);
    std::vector<uint8_t> out(80000, 0xAA);
    int w = 0, h = 0;
    size_t n = ExpandCloudPicture(block.data(), block.size(), out.data(), out.size(), &w, &h);
    EXPECT_EQ(w, 480);
    EXPECT_EQ(h, 480);
    ASSERT_EQ(n, 3u + 300u + 70000u);
    EXPECT_EQ(out[0], 7);
    EXPECT_EQ(out[1], 8);
    EXPECT_EQ(out[2], 9);
    EXPECT_EQ(out[3], 0x42);
    EXPECT_EQ(out[302], 0x42);
    EXPECT_EQ(out[303], 0x55);
    EXPECT_EQ(out[70302], 0x55);
    EXPECT_EQ(out[70303], 0xAA); // nothing beyond the packets
}

TEST(CloudPicture, DamagedBlocksStayWithinBothBuffers)
{
    // A literal that claims more bytes than the block holds, then a run
    // longer than the output: both are cut short (AddressSanitizer checks
    // that nothing outside is touched).
    std::vector<unsigned char> block = {0x10, 0x00, 0x10, 0x00, 0x05, 0x1F, 1, 2};
    std::vector<uint8_t> out(100, 0);
    EXPECT_EQ(ExpandCloudPicture(block.data(), block.size(), out.data(), out.size(), nullptr, nullptr), 3u);
    std::vector<unsigned char> runs = {0x10, 0x00, 0x10, 0x00, 0x09, 0xA0 | 0x1F, 0xFF};
    std::vector<uint8_t> small(10, 0);
    EXPECT_EQ(ExpandCloudPicture(runs.data(), runs.size(), small.data(), small.size(), nullptr, nullptr), 10u);
    EXPECT_EQ(small[9], 9);
    // A head-less block gives no size and nothing written.
    int w = -1, h = -1;
    EXPECT_EQ(ExpandCloudPicture(runs.data(), 3, small.data(), small.size(), &w, &h), 0u);
    EXPECT_EQ(w, 0);
    EXPECT_EQ(h, 0);
    // A truncated extra length byte ends the expansion.
    std::vector<unsigned char> cut = {0x10, 0x00, 0x10, 0x00, 0x01, 0xA0};
    EXPECT_EQ(ExpandCloudPicture(cut.data(), cut.size(), small.data(), small.size(), nullptr, nullptr), 0u);
}

TEST(CloudPicture, ShippedPictureIsANearlyBlackBrokenRing)
{
    std::vector<uint8_t> pic(kCloudPictureBytes, 0);
    int w = 0, h = 0;
    ASSERT_EQ(ExpandCloudPicture(kCloudPictureBlock, kCloudPictureBlockSize, pic.data(), pic.size(), &w, &h),
              kCloudPictureBytes);
    EXPECT_EQ(w, 480);
    EXPECT_EQ(h, 480);
    const uint8_t *Y = pic.data();
    double sum = 0;
    for (int i = 0; i < 480 * 480; i++) sum += Y[i];
    EXPECT_LT(sum / (480 * 480), 24.0) << "nearly black";
    // Video black in the centre and the corners.
    EXPECT_LE(Y[240 * 480 + 240], 18);
    EXPECT_LE(Y[2 * 480 + 2], 18);
    // Along the ring, bright arcs and dark gaps.
    int bright = 0, dark = 0;
    const double kPi = 3.14159265358979323846;
    for (int k = 0; k < 360; k++) {
        double a = k * kPi / 180.0;
        int x = int(240 + 150 * std::cos(a)), y = int(240 + 150 * std::sin(a));
        int v = Y[y * 480 + x];
        bright += v >= 40;
        dark += v <= 24;
    }
    EXPECT_GT(bright, 60);
    EXPECT_GT(dark, 30);
    // Chroma planes stay near neutral.
    for (size_t i = 480 * 480; i < pic.size(); i++) ASSERT_NEAR(pic[i], 128, 12) << i;
}

TEST(FisheyeAngles, WrapKeepsTheFractionAndTheSign)
{
    EXPECT_FLOAT_EQ(FisheyeWrapDegrees(725.5f), 5.5f);
    EXPECT_FLOAT_EQ(FisheyeWrapDegrees(-725.5f), -5.5f);
    EXPECT_FLOAT_EQ(FisheyeWrapDegrees(359.75f), 359.75f);
    EXPECT_FLOAT_EQ(FisheyeWrapDegrees(360.0f), 0.0f);
    EXPECT_FLOAT_EQ(FisheyeWrapDegrees(NAN), 0.0f);
    float big = FisheyeWrapDegrees(3.0e10f);
    EXPECT_GT(big, -360.0f);
    EXPECT_LT(big, 360.0f);
}

TEST(FisheyeInertia, DecaysByATenthAndStopsBelowHalf)
{
    float vx = 0.5f, vy = 0.0f;
    EXPECT_FALSE(FisheyeInertiaStep(&vx, &vy)); // 0.45 before its first use
    vx = 10.0f;
    vy = 0.0f;
    int calls = 0;
    while (FisheyeInertiaStep(&vx, &vy)) calls++;
    // 10 * 0.9^k >= 0.5 for k <= 28.4.
    EXPECT_EQ(calls, 28);
}
