#include <agent/ports/XdpProgram.h>
#include <fcntl.h>
#include <linux/bpf.h>
#include <linux/if_link.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>

namespace Agent {

namespace {

int bpf(bpf_cmd command, bpf_attr& attributes) {
  return static_cast<int>(syscall(SYS_bpf, command, &attributes, sizeof attributes));
}

constexpr bpf_insn instruction(uint8_t code, uint8_t to, uint8_t from, int16_t offset, int32_t value) {
  return {.code = code, .dst_reg = to, .src_reg = from, .off = offset, .imm = value};
}

}  // namespace

XdpProgram::XdpProgram(int sockets)
    : own_(false), sockets_(fcntl(sockets, F_DUPFD_CLOEXEC, 0)), inDriver_(true) {}

std::string XdpProgram::load(const Range& closed) {
  if (program_ || !own_) return {};
  bpf_attr map{};
  map.map_type = BPF_MAP_TYPE_XSKMAP;
  map.key_size = map.value_size = sizeof(uint32_t);
  map.max_entries = mostQueues;
  sockets_ = Descriptor(bpf(BPF_MAP_CREATE, map));
  if (!sockets_) return "no map of sockets";

  // without = closed.first <= context->rx_queue_index <= closed.last ? XDP_DROP : XDP_PASS;
  // return bpf_redirect_map(&sockets, context->rx_queue_index, without);
  const auto [first, last] = closed;
  const bpf_insn code[] = {
      instruction(BPF_LDX | BPF_MEM | BPF_W, BPF_REG_2, BPF_REG_1, offsetof(xdp_md, rx_queue_index), 0),
      instruction(BPF_ALU64 | BPF_MOV | BPF_K, BPF_REG_3, 0, 0, XDP_PASS),
      instruction(BPF_JMP | BPF_JLT | BPF_K, BPF_REG_2, 0, 2, static_cast<int32_t>(first)),
      instruction(BPF_JMP | BPF_JGT | BPF_K, BPF_REG_2, 0, 1, static_cast<int32_t>(last)),
      instruction(BPF_ALU64 | BPF_MOV | BPF_K, BPF_REG_3, 0, 0, XDP_DROP),
      instruction(BPF_LD | BPF_IMM | BPF_DW, BPF_REG_1, BPF_PSEUDO_MAP_FD, 0, sockets_.get()),
      instruction(0, 0, 0, 0, 0),
      instruction(BPF_JMP | BPF_CALL, 0, 0, 0, BPF_FUNC_redirect_map),
      instruction(BPF_JMP | BPF_EXIT, 0, 0, 0, 0),
  };
  constexpr char license[] = "Dual BSD/GPL";
  bpf_attr program{};
  program.prog_type = BPF_PROG_TYPE_XDP;
  program.insns = reinterpret_cast<uint64_t>(code);
  program.insn_cnt = sizeof code / sizeof *code;
  program.license = reinterpret_cast<uint64_t>(license);
  program_ = Descriptor(bpf(BPF_PROG_LOAD, program));
  return program_ ? "" : "the kernel refuses the XDP program";
}

std::string XdpProgram::attach(int device) {
  if (!own_) return {};
  for (const uint32_t mode : {XDP_FLAGS_DRV_MODE, XDP_FLAGS_SKB_MODE}) {
    bpf_attr link{};
    link.link_create.prog_fd = static_cast<uint32_t>(program_.get());
    link.link_create.target_ifindex = static_cast<uint32_t>(device);
    link.link_create.attach_type = BPF_XDP;
    link.link_create.flags = mode;
    link_ = Descriptor(bpf(BPF_LINK_CREATE, link));
    inDriver_ = mode == XDP_FLAGS_DRV_MODE;
    if (link_) return {};
    if (errno == EBUSY || errno == EEXIST) return "the device has an XDP program already";
  }
  return "the XDP program cannot be attached";
}

bool XdpProgram::socketIs(uint32_t queue, int socket) {
  bpf_attr entry{};
  entry.map_fd = static_cast<uint32_t>(sockets_.get());
  entry.key = reinterpret_cast<uint64_t>(&queue);
  entry.value = reinterpret_cast<uint64_t>(&socket);
  return bpf(BPF_MAP_UPDATE_ELEM, entry) == 0;
}

void XdpProgram::socketDel(uint32_t queue) {
  bpf_attr entry{};
  entry.map_fd = static_cast<uint32_t>(sockets_.get());
  entry.key = reinterpret_cast<uint64_t>(&queue);
  bpf(BPF_MAP_DELETE_ELEM, entry);
}

}  // namespace Agent
