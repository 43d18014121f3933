"""Tells whoever writes a velmor-guard whether it is right: script/check-service."""
