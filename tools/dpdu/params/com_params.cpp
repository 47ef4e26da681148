#include "params/com_params.h"

#include "console/failure.h"
#include "pdu/status_text.h"

namespace dpdu {
namespace {

T_PDU_ERROR Store(const Session& session, const LinkHandles& link, const ComParam& param,
                  const std::string& text) {
    PDU_PARAM_ITEM head = {};
    head.ComParamId = param.id;
    head.ComParamClass = param.param_class;
    ParamItemBuilder item(head, ParseParamValue(text, param.value));
    return session.Functions().SetComParam(link.module, link.link, item.Get());
}

}  // namespace

std::optional<ComParam> FindComParam(const Session& session, const LinkHandles& link,
                                     const std::string& name) {
    const std::optional<UNUM32> id = session.FindObject(PDU_OBJT_COMPARAM, name);
    if (!id) return std::nullopt;
    pdu::Item<PDU_PARAM_ITEM> item(session.Functions());
    const T_PDU_ERROR status =
        session.Functions().GetComParam(link.module, link.link, *id, item.Out());
    if (status != PDU_STATUS_NOERROR || !item) return std::nullopt;
    return ComParam{*id, item->ComParamClass, ReadParamValue(*item.Get())};
}

ComParam GetComParam(const Session& session, const LinkHandles& link, const std::string& name) {
    const std::optional<ComParam> param = FindComParam(session, link, name);
    if (!param) throw Failure("the library has no ComParam '" + name + "' on this link");
    return *param;
}

void SetComParam(const Session& session, const LinkHandles& link, const std::string& name,
                 const std::string& text) {
    const ComParam param = GetComParam(session, link, name);
    const T_PDU_ERROR status = Store(session, link, param, text);
    if (status == PDU_STATUS_NOERROR) return;
    throw Failure("the library refused " + name + "=" + text + " with " + StatusText(status));
}

bool TrySetComParam(const Session& session, const LinkHandles& link, const std::string& name,
                    const std::string& text) {
    const std::optional<ComParam> param = FindComParam(session, link, name);
    return param && Store(session, link, *param, text) == PDU_STATUS_NOERROR;
}

}  // namespace dpdu
