#include "commands.h"

namespace dpdu {

ModuleSession::ModuleSession(const CommonOptions& common)
    : session_(LoadPduFunctions(common.library), common.option_string),
      info_(ChooseModule(&session_, common.module, common.Wait())),
      module_(&session_, info_.handle) {}

}  // namespace dpdu
