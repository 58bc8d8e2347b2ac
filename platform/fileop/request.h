// What one call of a copier works by.
#pragma once

#include "args.h"
#include "fileop/copy.h"
#include "metadata.h"

namespace fileop {

struct Request {
  Request(TAVOCOPYOPTIONS* copy_options, _TAVOCOPYARGSEX* copy_args)
      : options(copy_options),
        args(copy_args),
        rules(RulesFor(*copy_options)),
        removes(copy_options->removeSourceFlag != 0) {}

  TAVOCOPYOPTIONS* options;
  _TAVOCOPYARGSEX* args;  // may be null
  MetadataRules rules;
  bool removes;  // sources go once their copies are safe

  bool cancelled() const { return options->isCancelled != nullptr && options->isCancelled() != 0; }
};

}  // namespace fileop
