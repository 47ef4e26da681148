#include "commands/module_session.h"

namespace dpdu {

ModuleSession::ModuleSession(const CommonOptions& common)
    : session_(common.LoadFunctions(), common.option_string),
      info_(ChooseModule(&session_, common.module, common.Wait())),
      module_(&session_, info_.handle) {}

}  // namespace dpdu
