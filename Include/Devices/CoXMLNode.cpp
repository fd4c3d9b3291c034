// placeholder: the property tree is being written
