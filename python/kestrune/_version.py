__version__ = "2.3.0"
