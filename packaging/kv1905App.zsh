#compdef kv1905App
eval "$(kv1905App completion zsh)"
