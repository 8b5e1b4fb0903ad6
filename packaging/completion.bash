# Completion of zel-ogc by bash; the command itself knows its words.
eval "$(zel-ogc --completion bash)"
