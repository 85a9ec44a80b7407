"""Reads OpenMetrics text from standard input with a parser that knows nothing of this project, and
writes each sample as a JSON object a line. Whatever the parser does not accept ends it with an error."""
import json
import sys

from prometheus_client.openmetrics.parser import text_string_to_metric_families

for family in text_string_to_metric_families(sys.stdin.read()):
    for sample in family.samples:
        print(json.dumps({"family": family.name, "type": family.type, "unit": family.unit,
                          "help": family.documentation, "name": sample.name,
                          "labels": sample.labels, "value": sample.value}))
