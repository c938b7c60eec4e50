#include <dmf/DMErrorExtension.h>

const dmf::Value& com_ql_dmf_objectForKey(const dmf::Error& error, std::string_view key)
{
    return error.userInfo()[key];
}
