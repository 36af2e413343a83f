#pragma once

/// Everything of the companion library.

#include <kit/batch_edit.h>
#include <kit/diff/blame.h>
#include <kit/diff/json_diff.h>
#include <kit/diff/line_diff.h>
#include <kit/diff/tree_changes.h>
#include <kit/diff/unified_diff.h>
#include <kit/diff/word_diff.h>
#include <kit/directory_store.h>
#include <kit/memory_store.h>
#include <kit/merge/content_merger.h>
#include <kit/merge/json_merge.h>
#include <kit/merge/text_merge.h>
#include <kit/save_repository.h>
#include <kit/store/blobs_as_object_store.h>
#include <kit/store/directory_object_store.h>
#include <kit/store/memory_object_store.h>
#include <kit/store/object_store.h>
#include <kit/store/object_store_as_blobs.h>
#include <kit/store/read_history.h>
#include <kit/text.h>
#include <kit/text/bytes.h>
#include <kit/text/error.h>
#include <kit/text/progress.h>
#include <kit/text/result.h>
#include <kit/workspace/folder_entry.h>
#include <kit/workspace/merge_preview.h>
#include <kit/workspace/retention.h>
#include <kit/workspace/snapshot.h>
#include <kit/workspace/version.h>
#include <kit/workspace/workspace.h>
#include <kit/workspace/workspace_options.h>
