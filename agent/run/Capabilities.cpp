#include <Kelp/Assert.h>
#include <agent/run/Capabilities.h>
#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <thread>

namespace Agent {

std::vector<int> capabilitiesKeep(const std::vector<int>& wanted) {
  // Only a privileged process may reduce the bounding set. For others it is harmless, because no program that
  // they start can gain privileges (PR_SET_NO_NEW_PRIVS below).
  for (int capability = 0; prctl(PR_CAPBSET_READ, capability) >= 0; ++capability) {
    if (std::count(wanted.begin(), wanted.end(), capability) == 0) prctl(PR_CAPBSET_DROP, capability);
  }
  prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_CLEAR_ALL, 0, 0, 0);
  prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);

  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct data[_LINUX_CAPABILITY_U32S_3] = {};
  bool done = syscall(SYS_capget, &header, data) == 0;
  std::vector<int> missing;
  uint32_t kept[_LINUX_CAPABILITY_U32S_3] = {};
  for (const int capability : wanted) {
    const uint32_t had = data[CAP_TO_INDEX(capability)].permitted & CAP_TO_MASK(capability);
    kept[CAP_TO_INDEX(capability)] |= had;
    if (had == 0) missing.push_back(capability);
  }
  for (int i = 0; i < _LINUX_CAPABILITY_U32S_3; ++i) data[i] = {kept[i], kept[i], 0};
  done = done && syscall(SYS_capset, &header, data) == 0;
  KELP_ASSERT(done, "a process can give up capabilities");
  return missing;
}

void withoutCapabilities(const std::function<void()>& run) {
  std::thread([&run] {
    capabilitiesKeep({});
    run();
  }).join();
}

}  // namespace Agent
