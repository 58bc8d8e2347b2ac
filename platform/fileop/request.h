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
        rules(RulesFor(*copy_options, MaskOf(copy_args))),
        removes(copy_options->removeSourceFlag != 0) {}

  TAVOCOPYOPTIONS* options;
  _TAVOCOPYARGSEX* args;  // may be null
  MetadataRules rules;
  bool removes;  // sources go once their copies are safe

  // Asked for once per handle: the answer costs more than a rename.
  static mode_t MaskOf(_TAVOCOPYARGSEX* args) {
    if (args == nullptr) return ReadUmask();
    if (!args->mask) args->mask = ReadUmask();
    return *args->mask;
  }

  bool cancelled() const { return options->isCancelled != nullptr && options->isCancelled() != 0; }
};

}  // namespace fileop
