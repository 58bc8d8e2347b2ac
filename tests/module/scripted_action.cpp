#include "scripted_action.h"

ActionScript scriptedAction;

std::int64_t Fennox::FennoxMVCPHandler::WebFMMVCPAction(EntryMap& entries, const std::string&,
                                                        bool isDirMap, int, _tag_action_type_,
                                                        const std::string&, const std::string&) {
  return scriptedAction(*this, entries, isDirMap);
}
