// Trees over the flat form they were read from.
#ifndef KESTRUNE_ENVELOPE_LENT_TREE_H
#define KESTRUNE_ENVELOPE_LENT_TREE_H

#include "blocks/flat_digest.h"
#include "core/owned.h"
#include "core/result.h"

class TypV2BlockCell;
class TypV2InstanceCreator;

namespace kestrune {

// Checks and rebuilds a flat tree whose bytes outlive the result: the data forks of the library's own cells are
// the bytes themselves. A platform's own cell is asked through its LoadFlatData. The codes are that one's.
Result LoadLentTree(TypV2InstanceCreator* creator, const unsigned char* flat, unsigned long long length,
                    Owned<TypV2BlockCell>* tree);

// The same, where the digests of the bytes are known.
Result LoadLentTree(TypV2InstanceCreator* creator, const unsigned char* flat, unsigned long long length,
                    const FlatDigests& digests, Owned<TypV2BlockCell>* tree);

}  // namespace kestrune

#endif
