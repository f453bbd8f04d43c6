#include <Kelp/Assert.h>
#include <agent/run/Capabilities.h>
#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <thread>

namespace Agent {

bool capabilitiesKeep(const std::set<int>& needed, const std::set<int>& ofUse) {
  std::set<int> kept = needed;
  kept.insert(ofUse.begin(), ofUse.end());
  // Only a privileged process may reduce the bounding set. For others it is harmless, because no program that
  // they start can gain privileges (PR_SET_NO_NEW_PRIVS below).
  for (int capability = 0; prctl(PR_CAPBSET_READ, capability) >= 0; ++capability) {
    if (!kept.contains(capability)) prctl(PR_CAPBSET_DROP, capability);
  }
  prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_CLEAR_ALL, 0, 0, 0);
  prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);

  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct data[_LINUX_CAPABILITY_U32S_3] = {};
  bool done = syscall(SYS_capget, &header, data) == 0;
  bool hadAll = true;
  uint32_t masks[_LINUX_CAPABILITY_U32S_3] = {};
  for (const int capability : kept) {
    const uint32_t had = data[CAP_TO_INDEX(capability)].permitted & CAP_TO_MASK(capability);
    masks[CAP_TO_INDEX(capability)] |= had;
    hadAll = hadAll && (had != 0 || !needed.contains(capability));
  }
  for (int i = 0; i < _LINUX_CAPABILITY_U32S_3; ++i) data[i] = {masks[i], masks[i], 0};
  done = done && syscall(SYS_capset, &header, data) == 0;
  KELP_ASSERT(done, "a process can give up capabilities");
  return hadAll;
}

void withoutCapabilities(const std::function<void()>& run) {
  std::thread([&run] {
    capabilitiesKeep({});
    run();
  }).join();
}

}  // namespace Agent
