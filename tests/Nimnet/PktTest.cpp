#include <MemSlab/Slab.h>
#include <Nimnet/Pkt.h>
#include <gtest/gtest.h>

#include <vector>

namespace {

using Nimnet::Pkt;

TEST(Pkt, HoldsWhatWasCaptured) {
  const auto pkt = MemSlab::make<Pkt>();
  const std::vector<uint8_t> bytes = {1, 2, 3, 4};
  pkt->assign(bytes, 60, 12.5);
  EXPECT_EQ(std::vector<uint8_t>(pkt->frame().begin(), pkt->frame().end()), bytes);
  EXPECT_EQ(pkt->size(), 4u);
  EXPECT_EQ(pkt->wireLength(), 60u);
  EXPECT_EQ(pkt->time(), 12.5);
  pkt->frontOffsetIs(2);
  EXPECT_EQ(*pkt->data(), 3) << "data() is at the front offset";
}

TEST(Pkt, TheWireIsNeverShorterThanTheCapture) {
  const auto pkt = MemSlab::make<Pkt>();
  pkt->assign(std::vector<uint8_t>(64), 10, 0);
  EXPECT_EQ(pkt->wireLength(), 64u);
}

TEST(Pkt, AssigningForgetsTheFrameBefore) {
  const auto pkt = MemSlab::make<Pkt>();
  pkt->assign(std::vector<uint8_t>(64), 64, 1);
  pkt->frontOffsetIs(14);
  pkt->vlanIdIs(100);
  pkt->assign(std::vector<uint8_t>(20), 20, 2);
  EXPECT_EQ(pkt->frontOffset(), 0u);
  EXPECT_EQ(pkt->vlanId(), 0);
  EXPECT_EQ(pkt->size(), 20u);
}

TEST(Pkt, ASmallerFrameReusesTheMemory) {
  const auto pkt = MemSlab::make<Pkt>();
  pkt->assign(std::vector<uint8_t>(1500), 1500, 0);
  const uint8_t* at = pkt->frame().data();
  pkt->assign(std::vector<uint8_t>(60), 60, 0);
  EXPECT_EQ(pkt->frame().data(), at);
  pkt->assign(std::vector<uint8_t>(1500), 1500, 0);
  EXPECT_EQ(pkt->frame().data(), at);
}

TEST(Pkt, AFrameCanStayWhereItLies) {
  const auto pkt = MemSlab::make<Pkt>(), other = MemSlab::make<Pkt>();
  const std::vector<uint8_t> bytes(64, 7);
  const int owner = 0;
  pkt->assignBehindType(0x800, std::vector<uint8_t>(20), 20, 1);
  pkt->frontOffsetIs(14);
  pkt->vlanIdIs(100);
  pkt->refer(bytes, 70, 12.5, &owner);
  EXPECT_EQ(pkt->frame().data(), bytes.data());
  EXPECT_EQ(pkt->wireLength(), 70u);
  EXPECT_EQ(pkt->time(), 12.5);
  EXPECT_EQ(pkt->origin(), &owner);
  EXPECT_EQ(pkt->frontOffset(), 0u);
  EXPECT_EQ(pkt->vlanId(), 0);
  EXPECT_TRUE(pkt->hasEthernet());
  other->refer(*pkt);
  EXPECT_EQ(other->frame().data(), bytes.data());
  EXPECT_EQ(other->origin(), &owner);
  other->assign(bytes, 64, 1);
  EXPECT_NE(other->frame().data(), bytes.data()) << "a copy of its own";
  EXPECT_EQ(other->origin(), nullptr);
  pkt->assignBehindType(0x86dd, bytes, 64, 1);
  other->refer(*pkt);
  EXPECT_FALSE(other->hasEthernet());
  EXPECT_EQ(other->typeBefore(), 0x86dd);
}

TEST(PktDeathTest, AFrontBeyondTheEndIsABrokenInvariant) {
  const auto pkt = MemSlab::make<Pkt>();
  pkt->assign(std::vector<uint8_t>(14), 14, 0);
  pkt->frontOffsetIs(14);
  EXPECT_DEATH(pkt->frontOffsetIs(15), "front of a packet");
}

}  // namespace
