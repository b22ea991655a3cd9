// The tool's side of operator commands: arguments checked, one buffer filled and posted through the host's callback.
//
// argc and argv are the tool's own; arguments 0 and 1 are not read. Each returns what the callback returned, -1 for
// refused arguments or without a callback.
#pragma once

namespace kv {

int postReboot(int argc, char **argv);
int postIntfPwrCtrl(int argc, char **argv);
int postFWCtrl(int argc, char **argv);
int postResetDefault(int argc, char **argv);
int postFWResult(int argc, char **argv);
int postLedCtrl(int argc, char **argv);
int postPartialResetDefault(int argc, char **argv);
int postRemoteCommand(int argc, char **argv);
int postSyncCountryReq(int argc, char **argv);
int postCountry(int argc, char **argv);
int postLogSetting(int argc, char **argv);

}  // namespace kv
