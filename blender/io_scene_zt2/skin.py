"""Armatures and skins: bones as nodes, an Armature modifier's vertex groups as
the host's Physique skin (docs/scene-format.md, "Skins in a buffer").

The host has no bind pose: a skin is bound in the pose the scene has at the
first sample, so the mesh is written as Blender deforms it there and each
vertex keeps its weights; the bones' keys move it from there on.
"""

import numpy as np

# The exporter keeps every influence a vertex has; the glTF conversion behind
# the preview page (docs/gltf.md) keeps the four strongest. The skin is cut to
# that here, where the user is told which object lost what.
MAX_INFLUENCES = 4


def bone_id(armature, bone_name):
    """The node id of a bone: bone names repeat across armatures and may be
    the names of objects."""
    return "bone:%s:%s" % (armature.name, bone_name)


def armature_modifier(obj, exported, warnings):
    """The Armature modifier that skins `obj` (the first shown in the viewport
    whose armature is exported), or None."""
    modifiers = [m for m in obj.modifiers if m.type == "ARMATURE" and m.show_viewport and m.object is not None
                 and m.object.name in exported]
    if not modifiers:
        return None
    modifier = modifiers[0]
    if len(modifiers) > 1:
        warnings.append("Object \"%s\": only Armature modifier \"%s\" is exported as its skin" %
                        (obj.name, modifier.name))
    if not modifier.use_vertex_groups:
        warnings.append("Object \"%s\": Armature modifier \"%s\" does not use vertex groups; the mesh follows "
                        "its own node" % (obj.name, modifier.name))
        return None
    lost = [what for what, on in (("bone envelopes", modifier.use_bone_envelopes),
                                  ("preserve volume", modifier.use_deform_preserve_volume),
                                  ("a mask vertex group", bool(modifier.vertex_group)),
                                  ("multi modifier", modifier.use_multi_modifier)) if on]
    if lost:
        warnings.append("Object \"%s\": Armature modifier \"%s\" uses %s, which the skin does not carry "
                        "(linear blending of vertex-group weights only)" % (obj.name, modifier.name,
                                                                           ", ".join(lost)))
    return modifier


def deform_bones(armature):
    """Names of the bones that deform, in the armature's order."""
    return [b.name for b in armature.data.bones if b.use_deform]


def bone_world(armature_eval, bone_name):
    """A posed bone's world matrix (Blender's, column vectors)."""
    return armature_eval.matrix_world @ armature_eval.pose.bones[bone_name].matrix


def vertex_weights(obj, mesh, bones):
    """The weights of the vertex groups of `obj` that name one of `bones`, per
    vertex of `mesh`: (counts (n,), bone indices (n, k), weights (n, k)), each
    row's first counts[v] entries used, zero weights left out."""
    index_of = {name: i for i, name in enumerate(bones)}
    group_bone = {g.index: index_of[g.name] for g in obj.vertex_groups if g.name in index_of}
    rows = []
    for vertex in mesh.vertices:
        rows.append([(group_bone[e.group], e.weight) for e in vertex.groups
                     if e.group in group_bone and e.weight > 0.0])
    width = max([len(r) for r in rows] + [1])
    counts = np.zeros(len(rows), np.int64)
    indices = np.zeros((len(rows), width), np.int64)
    weights = np.zeros((len(rows), width), np.float64)
    for v, row in enumerate(rows):
        counts[v] = len(row)
        for j, (bone, weight) in enumerate(row):
            indices[v, j] = bone
            weights[v, j] = weight
    return counts, indices, weights


def limit_influences(counts, indices, weights, limit=MAX_INFLUENCES):
    """Each vertex's influences, strongest first, at most `limit`, weights
    summing to 1; returns (counts, indices, weights, vertices that lost one)."""
    order = np.argsort(-weights, axis=1, kind="stable")
    indices = np.take_along_axis(indices, order, axis=1)[:, :limit]
    weights = np.take_along_axis(weights, order, axis=1)[:, :limit]
    lost = int((counts > limit).sum())
    counts = np.minimum(counts, limit)
    weights[np.arange(weights.shape[1])[None, :] >= counts[:, None]] = 0.0
    sums = weights.sum(axis=1)
    weights = np.divide(weights, sums[:, None], out=np.zeros_like(weights), where=sums[:, None] > 0.0)
    return counts, indices, weights, lost


def skin_words(counts, indices, weights, own):
    """The binary skin's uint32 words: a vertex of k influences is k, its k
    bone indices and its k weights' float32 bits; one of none is rigid on the
    table's entry `own` (its own node), as in Blender it stays with its object."""
    counts = np.asarray(counts, np.int64)
    lengths = np.where(counts == 0, 2, 1 + 2 * counts)
    starts = np.concatenate([[0], np.cumsum(lengths)[:-1]]).astype(np.int64)
    words = np.zeros(int(lengths.sum()), np.uint32)
    words[starts] = counts
    rigid = counts == 0
    words[starts[rigid] + 1] = own
    bits = np.ascontiguousarray(weights, np.float32).view(np.uint32)
    for j in range(indices.shape[1] if indices.ndim == 2 else 0):
        held = counts > j
        words[starts[held] + 1 + j] = indices[held, j]
        words[starts[held] + 1 + counts[held] + j] = bits[held, j]
    return words


def physique(buffer, bones, words, count):
    """A Physique modifier whose skin lies in the buffer."""
    return {"type": "physique",
            "vertices": {"bones": list(bones), "count": int(count), "records": buffer.add(words, np.uint32, 1)}}


def rigid_physique(buffer, node_id, count):
    """Every vertex bound to the node itself: the mesh moves with its node."""
    if count == 0:
        return {"type": "physique"}
    return physique(buffer, [node_id], np.zeros(2 * count, np.uint32), count)
