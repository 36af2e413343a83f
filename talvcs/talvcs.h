#pragma once

/// Everything that a host needs.

#include <talvcs/foundation/data_encoding.h>
#include <talvcs/foundation/helpers.h>
#include <talvcs/foundation/names.h>
#include <talvcs/foundation/string_conversion.h>
#include <talvcs/merge/resolvers.h>
#include <talvcs/merge/three_way_merge.h>
#include <talvcs/objects/blob.h>
#include <talvcs/objects/commit.h>
#include <talvcs/objects/commit_tree.h>
#include <talvcs/objects/dll_wrapped_shared.h>
#include <talvcs/objects/id.h>
#include <talvcs/objects/object.h>
#include <talvcs/objects/object_unavailable.h>
#include <talvcs/objects/tree.h>
#include <talvcs/persistence/blob_io.h>
#include <talvcs/persistence/deserializer.h>
#include <talvcs/persistence/packed_object.h>
#include <talvcs/persistence/path_builder.h>
#include <talvcs/persistence/serializer.h>
#include <talvcs/repository/irepository.h>
#include <talvcs/repository/repository.h>
#include <talvcs/storage/mem_objects_storage.h>
#include <talvcs/storage/object_reader.h>
#include <talvcs/storage/objects_storage.h>
#include <talvcs/storage/on_demand_storage.h>
#include <talvcs/version.h>
